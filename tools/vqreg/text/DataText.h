// Data as people type them, and as they are shown.
#ifndef TOOLS_VQREG_TEXT_DATATEXT_H
#define TOOLS_VQREG_TEXT_DATATEXT_H

#include <VQRegLib.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

// The rule that `set --help` tells: "0x" with one to eight hexadecimal digits, or a decimal number
// up to 4294967295 without leading zeros, is a number; everything else is text.
VQRegLib::CRegLib::eDataType guessType(const std::string& text);

// A number in decimal or with 0x; none when it is not one or does not fit into 32 bits.
std::optional<std::uint32_t> parseNumber(const std::string& text);

// Two digits per byte; none when the text is something else.
std::optional<std::string> parseHex(std::string_view text);

// Puts the data into the value, whose type must be set. Binary data are hexadecimal digits, "@FILE"
// or "-" for standard input. Throws eWrongKind for data that are not of the type.
void parseData(const std::string& text, Value& value);
// Likewise, where binary data are digits and nothing else.
void parseTyped(const std::string& text, Value& value);

// "string", "dword", "binary", "none"
std::string_view typeName(VQRegLib::CRegLib::eDataType type);

// Data as people write it: a number in decimal, binary data as capital hex digits, text as it is.
std::string dataText(const Value& value);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_DATATEXT_H
