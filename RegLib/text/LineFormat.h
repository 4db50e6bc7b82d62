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
    std::string_view typeWord;
};

// What a line lacks of a value line, in the order in which it is read.
enum class eLineFault { eNone, eNoQuote, eNotClosed, eNoEquals, eNoColon, eNoType };

// Nothing is escaped: the caller's text goes into the line as it is.
std::string composeDwordLine(std::string_view name, std::uint32_t value);
std::string composeStringLine(std::string_view name, std::string_view text);
std::string composeBinaryLine(std::string_view name, const unsigned char* data, std::size_t size);

// Whether a line is the one that would be composed, without composing it.
bool isDwordLine(std::string_view line, std::string_view name, std::uint32_t value);
bool isStringLine(std::string_view line, std::string_view name, std::string_view text);
bool isBinaryLine(std::string_view line, std::string_view name, const unsigned char* data,
                  std::size_t size);

// Makes a line that is as composed for one number that of another, under the same name.
void renumberDwordLine(char* line, std::size_t size, std::uint32_t value);

// How long such a line is: with a number's eight digits, a text as it is, two digits for each byte.
std::size_t valueLineSize(std::size_t nameSize, CRegLib::eDataType type, std::size_t dataSize);

// Takes a line of the file apart up to its data. After a fault `parts` has what stands before it: of a
// name that is not closed all that follows the quote, and the word that is no type.
eLineFault splitValueLine(std::string_view line, CValueLine& parts);

// The same for who only wants to know: REGLIB_E_BAD_FORMAT when it is no value line.
[[nodiscard]] int parseValueLine(std::string_view line, CValueLine& parts);

// The word for a type in a line, and back: "" stands for eNone, and eNone for every other word.
std::string_view wordOfType(CRegLib::eDataType type);
CRegLib::eDataType typeOfWord(std::string_view word);

// The path between the first "[" and the first "]". REGLIB_E_BAD_FORMAT when one is missing.
[[nodiscard]] int parseKeyLine(std::string_view line, std::string_view& path);

// Walks over the names in a key line's path: only slashes separate, and one at the end adds no
// name.
bool nextKeyLineName(std::string_view& rest, std::string_view& name);

// The data of a stored line: what follows its first ":", which for a name with a colon is not the
// data at all. Kept: files hold such names. REGLIB_E_FAIL without "=", REGLIB_E_BAD_FORMAT without
// ":".
[[nodiscard]] int dataOfLine(std::string_view line, std::string_view& data);

// Two upper-case digits for each byte.
std::string hexText(std::string_view bytes);

// What scanf takes for a blank, and for a digit of "%X".
constexpr bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

// Reads a number as scanf does for "%X" with a field width: blanks are skipped, a sign and "0x" are
// accepted and count; 0 when there is no digit.
std::uint32_t scanHex(std::string_view text, unsigned width);

// So many bytes, each of two digits that are read by the same rule. The text has digits for all of them, but
// perhaps the second one of the last.
void scanBytes(std::string_view digits, unsigned char* bytes, std::size_t count);

}  // namespace VQRegLib

#endif  // REGLIB_TEXT_LINEFORMAT_H
