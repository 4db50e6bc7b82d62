#include "tools/vqreg/text/JsonText.h"

#include "RegLib/text/LineFormat.h"
#include "tools/vqreg/text/DataInput.h"
#include "tools/vqreg/text/JsonReader.h"

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

std::string textForJson(std::string_view text) {
    if (isUtf8(text) && !text.starts_with(kHexPrefix)) {
        return std::string(text);
    }
    return std::string(kHexPrefix) + VQRegLib::hexText(text);
}

std::optional<std::string> textFromJson(std::string_view text) {
    if (!text.starts_with(kHexPrefix)) {
        return std::string(text);
    }
    return parseHex(text.substr(kHexPrefix.size()));
}

Json jsonOf(const Value& value) {
    Json json;
    json["type"] = VQRegLib::wordOfType(value.type);
    switch (value.type) {
        case CRegLib::eDword:
            json["value"] = value.number;
            break;
        case CRegLib::eBinary:
            json["value"] = VQRegLib::hexText(value.bytes);
            break;
        default:
            json["value"] = textForJson(value.bytes);
    }
    return json;
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
