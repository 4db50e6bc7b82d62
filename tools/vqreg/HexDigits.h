// Hexadecimal digits: upper case when written, either case when read.
#ifndef TOOLS_VQREG_HEX_DIGITS_H
#define TOOLS_VQREG_HEX_DIGITS_H

#include <optional>
#include <string>
#include <string_view>

namespace vqreg {

inline void appendHex(std::string& text, unsigned char byte) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
}

inline std::string hexText(std::string_view bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes) {
        appendHex(text, static_cast<unsigned char>(c));
    }
    return text;
}

inline std::optional<unsigned> hexDigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned>(c - 'A') + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<unsigned>(c - 'a') + 10;
    }
    return std::nullopt;
}

}  // namespace vqreg

#endif  // TOOLS_VQREG_HEX_DIGITS_H
