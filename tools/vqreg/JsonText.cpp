#include "tools/vqreg/JsonText.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "tools/vqreg/HexDigits.h"
#include "tools/vqreg/JsonReader.h"

namespace vqreg {

using VQRegLib::CRegLib;
using Json = nlohmann::ordered_json;

namespace {

constexpr std::string_view kHexPrefix = "hex:/";

bool isUtf8(std::string_view text) {
    try {
        static_cast<void>(Json(std::string(text)).dump());
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

std::string jsonString(const std::string& text) {
    return Json(textForJson(text)).dump();
}

void writeMembers(const Key& key, const std::string& indent, std::string& text);

// An object of all entries of a map, written by `write`.
template <typename Map, typename Write>
void writeObject(const char* name, const Map& map, const std::string& indent, std::string& text,
                 Write write) {
    text += indent + "\"" + name + "\": {";
    const char* separator = "\n";
    for (const auto& entry : map) {
        text += separator + indent + "  " + jsonString(entry.second.name) + ": ";
        write(entry.second);
        separator = ",\n";
    }
    text += map.empty() ? "}" : "\n" + indent + "}";
}

// By hand: an ordered object of the JSON library looks through all its members for each new one.
void writeMembers(const Key& key, const std::string& indent, std::string& text) {
    writeObject("values", key.values, indent, text,
                [&](const Value& value) { text += jsonOf(value).dump(); });
    text += ",\n";
    writeObject("keys", key.keys, indent, text, [&](const Key& child) {
        text += "{\n";
        writeMembers(child, indent + "    ", text);
        text += "\n" + indent + "  }";
    });
}

}  // namespace

std::optional<std::string> bytesOfDigits(std::string_view digits) {
    const auto isDigit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    if (digits.size() % 2 != 0 || !std::all_of(digits.begin(), digits.end(), isDigit)) {
        return std::nullopt;
    }
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16));
    }
    return bytes;
}

std::string textForJson(std::string_view text) {
    if (isUtf8(text) && !text.starts_with(kHexPrefix)) {
        return std::string(text);
    }
    return std::string(kHexPrefix) + hexText(text);
}

std::optional<std::string> textFromJson(std::string_view text) {
    if (!text.starts_with(kHexPrefix)) {
        return std::string(text);
    }
    return bytesOfDigits(text.substr(kHexPrefix.size()));
}

Json jsonOf(const Value& value) {
    switch (value.type) {
        case CRegLib::eDword:
            return {{"type", "dword"}, {"value", value.number}};
        case CRegLib::eBinary:
            return {{"type", "binary"}, {"value", hexText(value.bytes)}};
        default:
            return {{"type", "string"}, {"value", textForJson(value.bytes)}};
    }
}

std::string composeJsonText(const Key& key, const std::string& path) {
    std::string text = "{\n";
    text += "  \"name\": " + jsonString(key.name) + ",\n";
    text += "  \"key\": " + jsonString(path) + ",\n";
    writeMembers(key, "  ", text);
    return text + "\n}\n";
}

JsonText parseJsonText(std::string_view text) {
    JsonReader reader(text);
    return reader.read();
}

}  // namespace vqreg
