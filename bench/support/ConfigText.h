/// The text of the library's configuration file with a contest's data, as the library writes it.
#ifndef VQREG_BENCH_CONFIG_TEXT_H
#define VQREG_BENCH_CONFIG_TEXT_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "support/Data.h"

namespace bench {

inline std::string numberLine(const char* name, std::uint32_t number) {
    char line[128];
    std::snprintf(line, sizeof line, "\"%s\"=dword:%08X\n", name, number);
    return line;
}

inline std::string valueLine(std::size_t value) {
    const Field& field = Data::fieldOf(value);
    if (field.type == Type::eNumber) {
        return numberLine(field.name, Data::numberOf(value));
    }
    const std::string begin = std::string("\"") + field.name + "\"=";
    if (field.type == Type::eText) {
        return begin + "string:" + field.content + "\n";
    }
    std::string digits;
    for (const char byte : std::string(field.content)) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02X", static_cast<unsigned char>(byte));
        digits += pair;
    }
    return begin + "binary:" + digits + "\n";
}

inline std::string configText(const Data& data) {
    const auto keyLine = [](const std::string& path) {
        return std::string("[") + kTop + "/" + path + "]\n";
    };
    std::string text = std::string("[") + kTop + "]\n";
    std::string group;
    std::string top;
    for (std::size_t key = 0; key < data.keys(); ++key) {
        if (data.topPath(key) != top) {
            text += keyLine(top = data.topPath(key));
        }
        if (data.groupPath(key) != group) {
            text += keyLine(group = data.groupPath(key));
        }
        text += keyLine(data.keyPath(key));
        for (std::size_t i = 0; i < kValuesPerKey; ++i) {
            text += valueLine(key * kValuesPerKey + i);
        }
    }
    return text;
}

}  // namespace bench

#endif  // VQREG_BENCH_CONFIG_TEXT_H
