// A tree as JSON and back.
//
//   {"name": "Network", "key": "Network",
//    "values": {"Port": {"type": "dword", "value": 8080}, ...},
//    "keys": {"Dns": {"values": ..., "keys": ...}, ...}}
//
// The outermost object alone has "name", the key's own name, and "key", where it is below the root
// key ("" is the root key itself; texts of older versions have "path" and "/"). Every member may be
// missing. JsonData.h tells how data and names are written.
#ifndef TOOLS_VQREG_TEXT_JSONTEXT_H
#define TOOLS_VQREG_TEXT_JSONTEXT_H

#include <string>
#include <string_view>

#include "tools/vqreg/text/JsonReader.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

// `path` is the key's below the root key, as plainPath makes it.
std::string composeJsonText(const Key& key, const std::string& path);

JsonText parseJsonText(std::string_view text);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_JSONTEXT_H
