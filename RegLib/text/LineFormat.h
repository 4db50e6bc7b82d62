// The lines of the configuration file as pure text. docs/file-format.md describes them.
#ifndef REGLIB_TEXT_LINEFORMAT_H
#define REGLIB_TEXT_LINEFORMAT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "VQRegLib.h"

namespace VQRegLib {

// The parts of a value line; views into it.
struct CValueLine {
    std::string_view name;
    CRegLib::eDataType type = CRegLib::eNone;
};

// Nothing is escaped: the caller's text goes into the line as it is.
std::string composeDwordLine(std::string_view name, std::uint32_t value);
std::string composeStringLine(std::string_view name, std::string_view text);
std::string composeBinaryLine(std::string_view name, const unsigned char* data, std::size_t size);

// Whether a line is the one that would be composed, without composing it.
bool isDwordLine(std::string_view line, std::string_view name, std::uint32_t value);
bool isStringLine(std::string_view line, std::string_view name, std::string_view text);
bool isBinaryLine(std::string_view line, std::string_view name, const unsigned char* data,
                  std::size_t size);

// Checks a line of the file up to its data. REGLIB_E_BAD_FORMAT when it is no value line.
int parseValueLine(std::string_view line, CValueLine& parts);

// The path between the first "[" and the first "]". REGLIB_E_BAD_FORMAT when one is missing.
int parseKeyLine(std::string_view line, std::string_view& path);

// Walks over the names in a key line's path: only slashes separate, and one at the end adds no
// name.
bool nextKeyLineName(std::string_view& rest, std::string_view& name);

// The data of a stored line: what follows its first ":", which for a name with a colon is not the
// data at all. Kept: files hold such names. REGLIB_E_FAIL without "=", REGLIB_E_BAD_FORMAT without
// ":".
int dataOfLine(std::string_view line, std::string_view& data);

// Reads a number as scanf does for "%X" with a field width: blanks are skipped, a sign and "0x" are
// accepted and count; 0 when there is no digit.
std::uint32_t scanHex(std::string_view text, unsigned width);

}  // namespace VQRegLib

#endif  // REGLIB_TEXT_LINEFORMAT_H
