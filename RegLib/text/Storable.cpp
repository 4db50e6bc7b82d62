#include "RegLib/text/Storable.h"

#include <span>

#include "RegLib/text/KeyPath.h"
#include "RegLib/text/LineFormat.h"

namespace VQRegLib {

namespace {

struct CForbidden {
    char character;
    const char* name;
};

constexpr CForbidden kInNoText[] = {
    {'\n', "a line feed"}, {'\r', "a carriage return"}, {'\0', "a NUL"}};
constexpr CForbidden kInNoValueName[] = {{'"', "a double quote"}, {':', "a colon"}};
constexpr CForbidden kInNoKeyName[] = {
    {']', "a closing bracket"}, {'/', "a slash"}, {'\\', "a backslash"}};

std::optional<CBadCharacter> find(std::string_view text, std::span<const CForbidden> forbidden) {
    for (const CForbidden& each : forbidden) {
        const std::size_t at = text.find(each.character);
        if (at != std::string_view::npos) {
            return CBadCharacter{at, each.name};
        }
    }
    return std::nullopt;
}

// What no line can hold comes first.
std::optional<CBadCharacter> find(std::string_view text, std::span<const CForbidden> inNoText,
                                  std::span<const CForbidden> more) {
    const auto found = find(text, inNoText);
    return found ? found : find(text, more);
}

}  // namespace

// A key called as the invisible one above all is left out of the paths that are written: its values would
// change their key.
eBadKeyName badKeyName(std::string_view name) {
    return name.empty()       ? eBadKeyName::eEmpty
           : name == "<root>" ? eBadKeyName::eTreeRoot
                              : eBadKeyName::eNone;
}

std::optional<CBadCharacter> badCharacterInKeyName(std::string_view name) {
    return find(name, kInNoText, kInNoKeyName);
}

std::optional<CBadCharacter> badCharacterInValueName(std::string_view name) {
    return find(name, kInNoText, kInNoValueName);
}

std::optional<CBadCharacter> badCharacterInText(std::string_view text) {
    return find(text, kInNoText);
}

bool isStorableValue(std::string_view name, CRegLib::eDataType type, std::string_view data) {
    return !badCharacterInValueName(name) &&
           (type != CRegLib::eString || !badCharacterInText(data)) &&
           valueLineSize(name.size(), type, data.size()) <= kLongestLine;
}

bool isStorablePath(std::size_t lineAbove, std::string_view path) {
    CKeyPath names(path);
    for (std::string_view name; names.next(name);) {
        if (badKeyName(name) != eBadKeyName::eNone || badCharacterInKeyName(name)) {
            return false;
        }
    }
    return lineAbove + 1 + path.size() <= kLongestLine;
}

}  // namespace VQRegLib
