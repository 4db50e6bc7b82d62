#include "RegLib/text/LineFormat.h"

#include <new>
#include <utility>

namespace VQRegLib {

namespace {

constexpr std::string_view kBinary = "binary";
constexpr std::string_view kDword = "dword";
constexpr std::string_view kString = "string";

constexpr char kDigits[] = "0123456789ABCDEF";

// Each kind of line is put together in one place, out of pieces for a sink: one appends them to a
// text, the other compares a text with them, and ends at the first difference.
class CAppending {
public:
    CAppending(std::size_t nameSize, std::size_t dataSize) {
        constexpr std::size_t kRest = sizeof "\"\"=binary:" - 1;  // of the longest type word
        m_line.reserve(nameSize + dataSize + kRest);
    }
    bool put(std::string_view piece) {
        m_line += piece;
        return true;
    }
    std::string take() { return std::move(m_line); }

private:
    std::string m_line;
};

class CComparing {
public:
    explicit CComparing(std::string_view line) : m_rest(line) {}
    bool put(std::string_view piece) {
        if (m_rest.substr(0, piece.size()) != piece) {
            return false;
        }
        m_rest.remove_prefix(piece.size());
        return true;
    }
    bool isAtEnd() const { return m_rest.empty(); }

private:
    std::string_view m_rest;
};

template <typename Sink>
bool putStart(Sink& sink, std::string_view name, std::string_view typeWord) {
    return sink.put("\"") && sink.put(name) && sink.put("\"=") && sink.put(typeWord) &&
           sink.put(":");
}

template <typename Sink>
bool putDwordLine(Sink& sink, std::string_view name, std::uint32_t value) {
    char digits[8];
    for (unsigned i = 0; i < sizeof digits; ++i) {
        digits[i] = kDigits[(value >> (28 - 4 * i)) & 15];
    }
    return putStart(sink, name, kDword) && sink.put({digits, sizeof digits});
}

template <typename Sink>
bool putStringLine(Sink& sink, std::string_view name, std::string_view text) {
    return putStart(sink, name, kString) && sink.put(text);
}

template <typename Sink>
bool putBinaryLine(Sink& sink, std::string_view name, const unsigned char* data, std::size_t size) {
    if (!putStart(sink, name, kBinary)) {
        return false;
    }
    char digits[64];
    std::size_t count = 0;
    for (std::size_t i = 0; i < size; ++i) {
        digits[count++] = kDigits[data[i] >> 4];
        digits[count++] = kDigits[data[i] & 15];
        if (count == sizeof digits || i + 1 == size) {
            if (!sink.put({digits, count})) {
                return false;
            }
            count = 0;
        }
    }
    return true;
}

CRegLib::eDataType typeOfWord(std::string_view word) {
    if (word == kBinary) {
        return CRegLib::eBinary;
    }
    if (word == kDword) {
        return CRegLib::eDword;
    }
    return word == kString ? CRegLib::eString : CRegLib::eNone;
}

constexpr bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr unsigned kNoDigit = 16;

constexpr unsigned digitValue(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned>(c - 'A') + 10;
    }
    return c >= 'a' && c <= 'f' ? static_cast<unsigned>(c - 'a') + 10 : kNoDigit;
}

}  // namespace

std::string composeDwordLine(std::string_view name, std::uint32_t value) {
    CAppending sink(name.size(), 8);
    putDwordLine(sink, name, value);
    return sink.take();
}

std::string composeStringLine(std::string_view name, std::string_view text) {
    CAppending sink(name.size(), text.size());
    putStringLine(sink, name, text);
    return sink.take();
}

std::string composeBinaryLine(std::string_view name, const unsigned char* data, std::size_t size) {
    if (size > std::string().max_size() / 4) {
        throw std::bad_alloc();  // twice the size would not even be a number
    }
    CAppending sink(name.size(), 2 * size);
    putBinaryLine(sink, name, data, size);
    return sink.take();
}

bool isDwordLine(std::string_view line, std::string_view name, std::uint32_t value) {
    CComparing sink(line);
    return putDwordLine(sink, name, value) && sink.isAtEnd();
}

bool isStringLine(std::string_view line, std::string_view name, std::string_view text) {
    CComparing sink(line);
    return putStringLine(sink, name, text) && sink.isAtEnd();
}

bool isBinaryLine(std::string_view line, std::string_view name, const unsigned char* data,
                  std::size_t size) {
    CComparing sink(line);
    // A size that no line has is not taken for that of the data.
    return size <= line.size() / 2 && putBinaryLine(sink, name, data, size) && sink.isAtEnd();
}

int parseValueLine(std::string_view line, CValueLine& parts) {
    const std::size_t open = line.find('"');
    const std::size_t close = open == std::string_view::npos ? open : line.find('"', open + 1);
    if (close == std::string_view::npos || close + 1 >= line.size() || line[close + 1] != '=') {
        return REGLIB_E_BAD_FORMAT;
    }
    const std::string_view rest = line.substr(close + 2);
    const std::size_t colon = rest.find(':');
    if (colon == std::string_view::npos) {
        return REGLIB_E_BAD_FORMAT;
    }
    parts.name = line.substr(open + 1, close - open - 1);
    parts.type = typeOfWord(rest.substr(0, colon));
    return parts.type == CRegLib::eNone ? REGLIB_E_BAD_FORMAT : REGLIB_OK;
}

int parseKeyLine(std::string_view line, std::string_view& path) {
    const std::size_t close = line.find(']');
    const std::size_t open = line.substr(0, close).find('[');
    if (close == std::string_view::npos || open == std::string_view::npos) {
        return REGLIB_E_BAD_FORMAT;
    }
    path = line.substr(open + 1, close - open - 1);
    return REGLIB_OK;
}

bool nextKeyLineName(std::string_view& rest, std::string_view& name) {
    if (rest.empty()) {
        return false;
    }
    const std::size_t end = rest.find('/');
    name = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return true;
}

int dataOfLine(std::string_view line, std::string_view& data) {
    if (line.find('=') == std::string_view::npos) {
        return REGLIB_E_FAIL;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return REGLIB_E_BAD_FORMAT;
    }
    data = line.substr(colon + 1);
    return REGLIB_OK;
}

std::uint32_t scanHex(std::string_view text, unsigned width) {
    std::size_t at = 0;
    while (at < text.size() && isBlank(text[at])) {
        ++at;
    }
    text = text.substr(at, width);
    bool negative = false;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        negative = text[0] == '-';
        text.remove_prefix(1);
    }
    if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
    }
    std::uint32_t value = 0;
    for (const char c : text) {
        const unsigned digit = digitValue(c);
        if (digit == kNoDigit) {
            break;
        }
        value = value * 16 + digit;
    }
    return negative ? 0 - value : value;
}

}  // namespace VQRegLib
