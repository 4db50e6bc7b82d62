// A tree as JSON and back.
//
//   {"name": "Network", "key": "Network",
//    "values": {"Port": {"type": "dword", "value": 8080}, ...},
//    "keys": {"Dns": {"values": ..., "keys": ...}, ...}}
//
// The outermost object alone has "name", the key's own name, and "key", where it is below the root
// key ("" is the root key itself; texts of older versions have "path" and "/"). Every member may be
// missing. A dword is a number, binary data
// are hexadecimal digits, a string is a text.
//
// JSON is UTF-8 and the store is not: a name or string that is not UTF-8, or that begins with
// "hex:/", is written as "hex:/" and the hexadecimal digits of its bytes.
#ifndef TOOLS_VQREG_TEXT_JSONTEXT_H
#define TOOLS_VQREG_TEXT_JSONTEXT_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

// The rule for texts, and back; none when the digits are malformed.
std::string textForJson(std::string_view text);
std::optional<std::string> textFromJson(std::string_view text);

nlohmann::ordered_json jsonOf(const Value& value);

// `path` is the key's below the root key, as plainPath makes it.
std::string composeJsonText(const Key& key, const std::string& path);

struct JsonText {
    Key key;
    std::optional<std::string> path;  // as joinPath makes it
    std::vector<Finding> findings;    // at most one, an error
    bool isReadable() const { return findings.empty(); }
};

JsonText parseJsonText(std::string_view text);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_JSONTEXT_H
