// A line that goes to the standard output as well has always been handed to printf as its format, with no
// arguments: a "%" that some name or text brought into it took whatever lay on the stack. What people saw
// was mostly zeroes and nothing worse, and with other luck a crash. The conversions are still carried out,
// for the lines look as they did; but each gets a zero of its own kind, and one that printf could not take
// is printed as it stands.
#include "RegLib/trace/Echo.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

namespace VQRegLib {

namespace {

constexpr const char* kDigits = "0123456789";
constexpr const char* kFlags = "-+ #0'I";
constexpr std::size_t kLongestNumber = 5;  // digits of a width or precision that are honoured

constexpr const char* kConversions = "diouxXbBaAeEfFgGcCsSpm%";
constexpr const char* kFloats = "aAeEfFgG";
constexpr const char* kPointers = "sSp";
constexpr std::string_view kLengths[] = {"", "h", "hh", "l", "ll", "L", "q", "j", "z", "Z", "t"};

// A conversion of the line, and what is handed to printf for it. There are no arguments but zeros:
// widths and precisions that are arguments are left out or zero here, and it does not matter which
// argument is meant. What remains needs one argument at most.
class CConversion {
public:
    // `text` begins with "%".
    explicit CConversion(const char* text) : m_at(text + 1), m_isValid(parse()) {}

    const char* end() const { return m_at; }
    bool isValid() const { return m_isValid; }

    void print() const {
        const char* const none = nullptr;
        if (std::strchr(kFloats, m_letter)) {
            std::printf(m_format, 0.0);
        } else if (std::strchr(kPointers, m_letter)) {
            std::printf(m_format, none);
        } else {
            std::printf(m_format, 0);
        }
    }

private:
    bool parse() {
        skipPosition();
        if (!take(std::strspn(m_at, kFlags)) || !takeNumber()) {
            return false;
        }
        if (*m_at == '.' && !(take(1) && takeNumber())) {
            return false;
        }
        return takeLetter();
    }

    // "%2$d": the second argument is a zero like the others.
    void skipPosition() {
        const std::size_t digits = std::strspn(m_at, kDigits);
        if (digits > 0 && m_at[digits] == '$' && std::strspn(m_at, "0") == 0) {
            m_at += digits + 1;
        }
    }

    bool takeNumber() {
        if (*m_at == '*') {
            ++m_at;
            skipPosition();
            return true;
        }
        const std::size_t digits = std::strspn(m_at, kDigits);
        return digits <= kLongestNumber && take(digits);
    }

    // The length goes: it does not show in a zero.
    bool takeLetter() {
        const std::string_view length(m_at, std::strspn(m_at, "hlLqjzZt"));
        m_at += length.size();
        m_letter = *m_at;
        return m_letter != '\0' && std::strchr(kConversions, m_letter) && take(1) &&
               std::find(std::begin(kLengths), std::end(kLengths), length) != std::end(kLengths);
    }

    bool take(std::size_t size) {
        if (m_size + size >= sizeof m_format) {
            return false;
        }
        std::memcpy(m_format + m_size, m_at, size);
        m_size += size;
        m_at += size;
        return true;
    }

    const char* m_at;
    char m_format[64] = "%";
    std::size_t m_size = 1;
    char m_letter = '\0';
    const bool m_isValid;
};

void printText(const char* begin, const char* end) {
    std::fwrite(begin, 1, static_cast<std::size_t>(end - begin), stdout);
}

}  // namespace

// The whole under the stream's own lock, as one printf would be.
void echoTraceLine(const char* line) {
    const int error = errno;
    flockfile(stdout);
    for (const char* percent = line; (percent = std::strchr(line, '%')) != nullptr;) {
        printText(line, percent);
        const CConversion conversion(percent);
        if (conversion.isValid()) {
            errno = error;  // "%m" prints it
            conversion.print();
            line = conversion.end();
        } else {
            printText(percent, percent + 1);
            line = percent + 1;
        }
    }
    std::fputs(line, stdout);
    funlockfile(stdout);
}

}  // namespace VQRegLib
