// Lines of the log, in which every byte can be seen.
#ifndef VQCOMPARE_LOG_H
#define VQCOMPARE_LOG_H

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>

namespace vqcompare {

// All of a text in one line.
inline std::string shown(const std::string& text) {
    std::string out = "'";
    for (const char letter : text) {
        if (letter >= ' ' && letter <= '~' && letter != '\\' && letter != '\'') {
            out += letter;
        } else {
            char code[8];
            std::snprintf(code, sizeof code, "\\%02X", static_cast<unsigned char>(letter));
            out += code;
        }
    }
    return out + "'";
}

inline std::string shown(const char* text) {
    return text == nullptr ? "null" : shown(std::string(text));
}

template <typename... Parts>
void log(const Parts&... parts) {
    std::ostringstream line;
    (line << ... << parts);
    std::fputs((line.str() + "\n").c_str(), stdout);
}

inline std::string code(int result) {
    char text[16];
    std::snprintf(text, sizeof text, " = %08X", static_cast<unsigned>(result));
    return text;
}

// Tells texts apart.
inline std::string digest(const std::string& text) {
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const char byte : text) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3u;
    }
    return std::to_string(text.size()) + " bytes, " + std::to_string(hash);
}

}  // namespace vqcompare

#endif  // VQCOMPARE_LOG_H
