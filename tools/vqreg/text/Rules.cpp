#include "tools/vqreg/text/Rules.h"

#include <fmt/format.h>

#include <string_view>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/LineSplitter.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

using VQRegLib::CRegLib;

constexpr std::size_t kLongestLine = VQRegLib::kLongestPiece - 1;  // the reader cuts a longer one

struct ForbiddenCharacter {
    char character;
    const char* name;
};

constexpr ForbiddenCharacter kInNoText[] = {
    {'\n', "a line feed"}, {'\r', "a carriage return"}, {'\0', "a NUL"}};
constexpr ForbiddenCharacter kInNoValueName[] = {{'"', "a double quote"}, {':', "a colon"}};
constexpr ForbiddenCharacter kInNoKeyName[] = {
    {']', "a closing bracket"}, {'/', "a slash"}, {'\\', "a backslash"}};

template <std::size_t size>
std::optional<std::string> forbiddenIn(const std::string& text,
                                       const ForbiddenCharacter (&forbidden)[size],
                                       const char* what) {
    for (const ForbiddenCharacter& each : forbidden) {
        const std::size_t at = text.find(each.character);
        if (at != std::string::npos) {
            return fmt::format("{} must not hold {}: {}, byte {}", what, each.name, shown(text),
                               at + 1);
        }
    }
    return std::nullopt;
}

std::optional<std::string> tooLong(const std::string& what, std::size_t size) {
    if (size <= kLongestLine) {
        return std::nullopt;
    }
    return fmt::format("a line must not be longer than {} bytes: {} would take {}", kLongestLine,
                       what, size);
}

std::optional<std::string> tooLongKeyLine(const std::string& rootName, const Path& path) {
    const std::string full =
        rootName + (rootName.empty() || path.empty() ? "" : "/") + plainPath(path);
    return tooLong("the key " + shown(full), full.size() + 2);
}

void collect(const std::string& rootName, Path& path, const Key& key,
             std::vector<std::string>& broken) {
    const std::string place = ", in the key \"" + printable(joinPath(path)) + '"';
    for (const auto& [name, value] : key.values) {
        if (const auto rule = brokenRuleOfValue(value)) {
            broken.push_back(*rule + place);
        }
        if (key.keys.contains(name)) {
            broken.push_back("a value and a sub key must not have one name: " + shown(value.name) +
                             place);
        }
    }
    for (const auto& [name, child] : key.keys) {
        if (const auto rule = brokenRuleOfKeyName(child.name)) {
            broken.push_back(*rule + place);
        }
        path.push_back(child.name);
        if (const auto rule = tooLongKeyLine(rootName, path)) {
            broken.push_back(*rule);
        }
        collect(rootName, path, child, broken);
        path.pop_back();
    }
}

}  // namespace

std::optional<std::string> brokenRuleOfKeyName(const std::string& name) {
    if (name.empty()) {
        return "a key name must not be empty";
    }
    if (name == "<root>") {
        // The library leaves such a name out of the paths it writes: values would change their key.
        return "a key must not be named <root>";
    }
    const char* const what = "a key name";
    const auto broken = forbiddenIn(name, kInNoText, what);
    return broken ? broken : forbiddenIn(name, kInNoKeyName, what);
}

std::optional<std::string> brokenRuleOfValueName(const std::string& name) {
    const char* const what = "a value name";
    const auto broken = forbiddenIn(name, kInNoText, what);
    return broken ? broken : forbiddenIn(name, kInNoValueName, what);
}

std::optional<std::string> brokenRuleOfValue(const Value& value) {
    if (const auto broken = brokenRuleOfValueName(value.name)) {
        return broken;
    }
    if (value.type == CRegLib::eNone) {
        return "a value must be binary, a dword or a string: " + shown(value.name);
    }
    if (value.type == CRegLib::eString) {
        if (const auto broken = forbiddenIn(value.bytes, kInNoText, "a text")) {
            return broken;
        }
    }
    return tooLong("the value " + shown(value.name),
                   VQRegLib::valueLineSize(value.name.size(), value.type, value.bytes.size()));
}

std::optional<std::string> brokenRuleOfKeyPath(const std::string& rootName, const Path& path) {
    for (const std::string& name : path) {
        if (const auto broken = brokenRuleOfKeyName(name)) {
            if (isNothing(path)) {
                return *broken + "; the root key is \"/\"";
            }
            return *broken + ", in the path \"" + printable(joinPath(path)) + '"';
        }
    }
    return tooLongKeyLine(rootName, path);
}

std::vector<std::string> brokenRulesOfTree(const std::string& rootName, const Path& path,
                                           const Key& key) {
    std::vector<std::string> broken;
    if (const auto rule = brokenRuleOfKeyPath(rootName, path)) {
        broken.push_back(*rule);
    }
    Path walked = path;
    collect(rootName, walked, key, broken);
    return broken;
}

}  // namespace vqreg
