// Names and data in JSON: a dword is a number, binary data are hexadecimal digits, a string is a text.
//
// JSON is UTF-8 and the store is not: a name or string that is not UTF-8, or that begins with
// "hex:/", is written as "hex:/" and the hexadecimal digits of its bytes.
#ifndef TOOLS_VQREG_TEXT_JSONDATA_H
#define TOOLS_VQREG_TEXT_JSONDATA_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

bool isUtf8(std::string_view text);

// The rule for texts, and back; none when the digits are malformed.
std::string textForJson(std::string_view text);
std::optional<std::string> textFromJson(std::string_view text);

nlohmann::ordered_json jsonOf(const Value& value);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_JSONDATA_H
