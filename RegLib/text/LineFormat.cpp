// The grammar of value lines in both directions, and the reading of key lines, which CTree::fullNameFor
// composes. The library, the command and the fuzz targets all come here.
//
// A value line is `"` name `"=` type `:` data. Nothing is escaped, in no direction, and cannot be: files
// in the field are full of texts with quotes and colons that are read as they stand. So reading is
// defined by what is found first. A name ends at the first quote after the first one. The type is what
// stands between the `=` behind that quote and the first colon. But the data of a line that is stored
// begins at the first colon of the whole line (dataOfLine): for a name with a colon in it that is a place
// within the name, and what a query returns for such a value has always been that. Both rules are kept,
// because both have left their marks in files.
//
// Numbers are written with eight upper-case digits and read as scanf reads "%8X": blanks before them, a
// sign, "0x" and fewer digits are all taken, because people edit these files. Bytes are read two digits
// at a time by the same rule.
//
// Composing and comparing share their code through a sink, so that "does this line already say so" can
// never disagree with "what line would say so". A set that changes nothing is the most frequent set there
// is, and it costs a comparison and no memory.
#include "RegLib/text/LineFormat.h"

#include <array>
#include <bit>
#include <cstring>
#include <new>
#include <utility>

namespace VQRegLib {

namespace {

// What stands between name and data, with the word for the type in it.
constexpr std::string_view kBeforeBytes = "\"=binary:";
constexpr std::string_view kBeforeNumber = "\"=dword:";
constexpr std::string_view kBeforeText = "\"=string:";

constexpr std::string_view wordIn(std::string_view before) {
    return before.substr(2, before.size() - 3);
}

constexpr std::string_view kBinary = wordIn(kBeforeBytes);
constexpr std::string_view kDword = wordIn(kBeforeNumber);
constexpr std::string_view kString = wordIn(kBeforeText);

constexpr char kDigits[] = "0123456789ABCDEF";

// Each kind of line is put together in one place, out of pieces for a sink: one appends them to a
// text, the other compares a text with them, and ends at the first difference.
class CAppending {
public:
    explicit CAppending(std::size_t size) { m_line.reserve(size); }
    bool put(std::string_view piece) {
        m_line += piece;
        return true;
    }
    bool put(char c) {
        m_line += c;
        return true;
    }
    std::string take() { return std::move(m_line); }

private:
    std::string m_line;
};

class CComparing {
public:
    explicit CComparing(std::string_view line) : m_rest(line) {}
    [[gnu::always_inline]] bool put(std::string_view piece) {
        if (!m_rest.starts_with(piece)) {
            return false;
        }
        m_rest.remove_prefix(piece.size());
        return true;
    }
    bool put(char c) {
        if (!m_rest.starts_with(c)) {
            return false;
        }
        m_rest.remove_prefix(1);
        return true;
    }
    bool isAtEnd() const { return m_rest.empty(); }
    std::size_t left() const { return m_rest.size(); }

private:
    std::string_view m_rest;
};

template <typename Sink>
[[gnu::always_inline]] inline bool putStart(Sink& sink, std::string_view name,
                                            std::string_view beforeData) {
    return sink.put('"') && sink.put(name) && sink.put(beforeData);
}

// All eight at once, the first one in the first byte of memory: each half of a byte becomes a byte of its
// own, and those from ten on reach the letters.
constexpr std::uint64_t digitsOf(std::uint32_t value) {
    static_assert(std::endian::native == std::endian::little);
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    std::uint64_t halves = value;
    halves = (halves | halves << 16) & 0x0000FFFF0000FFFF;
    halves = (halves | halves << 8) & 0x00FF00FF00FF00FF;
    halves = (halves | halves << 4) & kOnes * 0x0F;
    const std::uint64_t isLetter = (halves + kOnes * 6) >> 4 & kOnes;
    return __builtin_bswap64(halves + kOnes * '0' + isLetter * ('A' - '9' - 1));
}

constexpr std::size_t kNumberSize = 8;

void writeDigits(std::uint32_t value, char* at) {
    const std::uint64_t word = digitsOf(value);
    static_assert(sizeof word == kNumberSize);
    std::memcpy(at, &word, sizeof word);
}

template <typename Sink>
bool putDwordLine(Sink& sink, std::string_view name, std::uint32_t value) {
    char digits[kNumberSize];
    writeDigits(value, digits);
    return putStart(sink, name, kBeforeNumber) && sink.put(std::string_view(digits, sizeof digits));
}

template <typename Sink>
bool putStringLine(Sink& sink, std::string_view name, std::string_view text) {
    return putStart(sink, name, kBeforeText) && sink.put(text);
}

template <typename Sink>
bool putDigits(Sink& sink, const unsigned char* data, std::size_t size) {
    char digits[64];
    std::size_t count = 0;
    for (std::size_t i = 0; i < size; ++i) {
        digits[count++] = kDigits[data[i] >> 4];
        digits[count++] = kDigits[data[i] & 15];
        if (count == sizeof digits || i + 1 == size) {
            if (!sink.put(std::string_view(digits, count))) {
                return false;
            }
            count = 0;
        }
    }
    return true;
}

template <typename Sink>
bool putBinaryLine(Sink& sink, std::string_view name, const unsigned char* data, std::size_t size) {
    return putStart(sink, name, kBeforeBytes) && putDigits(sink, data, size);
}

// Of what is a digit.
constexpr unsigned digitValue(char c) {
    return c <= '9' ? static_cast<unsigned>(c - '0') : static_cast<unsigned>((c | 0x20) - 'a') + 10;
}

// The same without a branch, which for a text of digits would be taken by chance. kNoDigit for anything else.
constexpr unsigned kNoDigit = 16;
constexpr std::array<unsigned char, 256> kDigitValues = [] {
    std::array<unsigned char, 256> values{};
    for (std::size_t c = 0; c < values.size(); ++c) {
        const char digit = static_cast<char>(c);
        values[c] = static_cast<unsigned char>(isHexDigit(digit) ? digitValue(digit) : kNoDigit);
    }
    return values;
}();
unsigned valueInTable(char c) {
    return kDigitValues[static_cast<unsigned char>(c)];
}

}  // namespace

std::string composeDwordLine(std::string_view name, std::uint32_t value) {
    CAppending sink(valueLineSize(name.size(), CRegLib::eDword, sizeof value));
    putDwordLine(sink, name, value);
    return sink.take();
}

std::string composeStringLine(std::string_view name, std::string_view text) {
    CAppending sink(valueLineSize(name.size(), CRegLib::eString, text.size()));
    putStringLine(sink, name, text);
    return sink.take();
}

std::string composeBinaryLine(std::string_view name, const unsigned char* data, std::size_t size) {
    if (size > std::string().max_size() / 4) {
        throw std::bad_alloc();  // twice the size would not even be a number
    }
    CAppending sink(valueLineSize(name.size(), CRegLib::eBinary, size));
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

void renumberDwordLine(char* line, std::size_t size, std::uint32_t value) {
    writeDigits(value, line + size - kNumberSize);
}

std::size_t valueLineSize(std::size_t nameSize, CRegLib::eDataType type, std::size_t dataSize) {
    constexpr std::size_t kPunctuation = 4;  // two quotes, "=" and ":"
    const std::size_t start = nameSize + wordOfType(type).size() + kPunctuation;
    switch (type) {
        case CRegLib::eDword:
            return start + kNumberSize;
        case CRegLib::eBinary:
            return start + 2 * dataSize;
        default:
            return start + dataSize;
    }
}

eLineFault splitValueLine(std::string_view line, CValueLine& parts) {
    const std::size_t open = line.find('"');
    if (open == std::string_view::npos) {
        return eLineFault::eNoQuote;
    }
    const std::size_t close = line.find('"', open + 1);
    parts.name = line.substr(open + 1, close - open - 1);
    if (close == std::string_view::npos) {
        return eLineFault::eNotClosed;
    }
    if (close + 1 >= line.size() || line[close + 1] != '=') {
        return eLineFault::eNoEquals;
    }
    const std::string_view rest = line.substr(close + 2);
    const std::size_t colon = rest.find(':');
    if (colon == std::string_view::npos) {
        return eLineFault::eNoColon;
    }
    parts.typeWord = rest.substr(0, colon);
    parts.type = typeOfWord(parts.typeWord);
    return parts.type == CRegLib::eNone ? eLineFault::eNoType : eLineFault::eNone;
}

int parseValueLine(std::string_view line, CValueLine& parts) {
    return splitValueLine(line, parts) == eLineFault::eNone ? REGLIB_OK : REGLIB_E_BAD_FORMAT;
}

std::string_view wordOfType(CRegLib::eDataType type) {
    switch (type) {
        case CRegLib::eBinary:
            return kBinary;
        case CRegLib::eDword:
            return kDword;
        case CRegLib::eString:
            return kString;
        default:
            return {};
    }
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

std::string hexText(std::string_view bytes) {
    CAppending sink(2 * bytes.size());
    putDigits(sink, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return sink.take();
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
        if (!isHexDigit(c)) {
            break;
        }
        value = value * 16 + digitValue(c);
    }
    return negative ? 0 - value : value;
}

void scanBytes(std::string_view digits, unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::string_view left = digits.substr(2 * i);
        const unsigned high = valueInTable(left[0]);
        const unsigned low = left.size() > 1 ? valueInTable(left[1]) : kNoDigit;
        bytes[i] = static_cast<unsigned char>((high | low) < kNoDigit ? high << 4 | low
                                                                      : scanHex(left, 2));
    }
}

}  // namespace VQRegLib
