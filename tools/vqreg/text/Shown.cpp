#include "tools/vqreg/text/Shown.h"

#include <fmt/format.h>

#include <algorithm>

namespace vqreg {

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            result += fmt::format("\\x{:02X}", byte);
        } else {
            result += c;
        }
    }
    return result;
}

std::string shown(std::string_view text) {
    constexpr std::size_t kLongestShown = 60;
    std::size_t size = std::min(text.size(), kLongestShown);
    while (size > 0 && size < text.size() &&
           (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) {
        --size;  // not in the middle of a character
    }
    return '"' + printable(text.substr(0, size)) + (size < text.size() ? "...\"" : "\"");
}

}  // namespace vqreg
