#include "tools/vqreg/text/JsonText.h"

#include "tools/vqreg/text/JsonData.h"

namespace vqreg {

using Json = nlohmann::ordered_json;

namespace {

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
