#include "RegLib/file/LineFormat.h"

#include <new>

namespace VQRegLib {

namespace {

constexpr std::string_view kBinary = "binary";
constexpr std::string_view kDword = "dword";
constexpr std::string_view kString = "string";

constexpr char kDigits[] = "0123456789ABCDEF";

std::string startLine(std::string_view name, std::string_view typeWord, std::size_t dataSize) {
    std::string line;
    line.reserve(name.size() + typeWord.size() + dataSize + 4);
    line += '"';
    line += name;
    line += "\"=";
    line += typeWord;
    line += ':';
    return line;
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
    std::string line = startLine(name, kDword, 8);
    for (int shift = 28; shift >= 0; shift -= 4) {
        line += kDigits[(value >> shift) & 15];
    }
    return line;
}

std::string composeStringLine(std::string_view name, std::string_view text) {
    std::string line = startLine(name, kString, text.size());
    line += text;
    return line;
}

std::string composeBinaryLine(std::string_view name, const unsigned char* data, std::size_t size) {
    if (size > std::string().max_size() / 4) {
        throw std::bad_alloc();  // twice the size would not even be a number
    }
    std::string line = startLine(name, kBinary, 2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        line += kDigits[data[i] >> 4];
        line += kDigits[data[i] & 15];
    }
    return line;
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
