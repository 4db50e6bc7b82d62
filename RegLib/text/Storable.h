// What the file can give back. The library's C++ interface does not ask: it has always stored whatever it
// was given, and programs rely on its exact bytes. The C interface and the command ask first, because one
// line that breaks a rule stops every process on the machine.
#ifndef REGLIB_TEXT_STORABLE_H
#define REGLIB_TEXT_STORABLE_H

#include <cstddef>
#include <optional>
#include <string_view>

#include "RegLib/text/LineSplitter.h"
#include "VQRegLib.h"

namespace VQRegLib {

// A character that may not stand where it stands.
struct CBadCharacter {
    std::size_t at = 0;
    const char* name = nullptr;  // "a line feed"
};

// What a key may not be called at all.
enum class eBadKeyName { eNone, eEmpty, eTreeRoot };
eBadKeyName badKeyName(std::string_view name);

std::optional<CBadCharacter> badCharacterInKeyName(std::string_view name);
std::optional<CBadCharacter> badCharacterInValueName(std::string_view name);
std::optional<CBadCharacter> badCharacterInText(std::string_view text);

// The reader cuts a longer one.
constexpr std::size_t kLongestLine = kLongestPiece - 1;

// All of it for a value, and for the names of a path below a key whose line has so many bytes.
bool isStorableValue(std::string_view name, CRegLib::eDataType type, std::string_view data);
bool isStorablePath(std::size_t lineAbove, std::string_view path);

}  // namespace VQRegLib

#endif  // REGLIB_TEXT_STORABLE_H
