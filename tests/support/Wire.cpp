#include "support/Wire.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace vqtest {

namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

unsigned digitValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned>(digit - '0');
    }
    if (digit >= 'A' && digit <= 'F') {
        return static_cast<unsigned>(digit - 'A') + 10;
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<unsigned>(digit - 'a') + 10;
    }
    throw std::invalid_argument("no hexadecimal digit");
}

void appendHex(std::string& text, char byte) {
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4];
    text += kDigits[value & 15u];
}

std::string unescape(std::string_view field) {
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '%') {
            text += field[i];
            continue;
        }
        if (field.size() - i < 3) {
            throw std::invalid_argument("unfinished escape");
        }
        text += fromHex(field.substr(i + 1, 2));
        i += 2;
    }
    return text;
}

}  // namespace

std::string joinFields(const Fields& fields) {
    std::string line;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i != 0) {
            line += '\t';
        }
        for (const char byte : fields[i]) {
            if (byte == '\t' || byte == '\r' || byte == '\n' || byte == '%') {
                line += '%';
                appendHex(line, byte);
            } else {
                line += byte;
            }
        }
    }
    return line;
}

Fields splitFields(std::string_view line) {
    Fields fields;
    std::size_t begin = 0;
    for (;;) {
        const std::size_t end = line.find('\t', begin);
        if (end == std::string_view::npos) {
            fields.push_back(unescape(line.substr(begin)));
            return fields;
        }
        fields.push_back(unescape(line.substr(begin, end - begin)));
        begin = end + 1;
    }
}

std::string toHex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        appendHex(text, byte);
    }
    return text;
}

std::string fromHex(std::string_view digits) {
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("odd number of hexadecimal digits");
    }
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(digitValue(digits[i]) * 16 + digitValue(digits[i + 1]));
    }
    return bytes;
}

std::string codeToText(int code) {
    const auto value = static_cast<std::uint32_t>(code);
    std::string text;
    for (int shift = 28; shift >= 0; shift -= 4) {
        text += kDigits[(value >> shift) & 15u];
    }
    return text;
}

int codeFromText(std::string_view text) {
    if (text.size() != 8) {
        throw std::invalid_argument("no result code: " + std::string(text));
    }
    std::uint32_t value = 0;
    for (const char digit : text) {
        value = value * 16 + digitValue(digit);
    }
    return static_cast<int>(value);
}

}  // namespace vqtest
