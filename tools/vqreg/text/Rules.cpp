#include "tools/vqreg/text/Rules.h"

#include <fmt/format.h>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/Storable.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

using VQRegLib::CRegLib;
using VQRegLib::kLongestLine;

std::optional<std::string> forbiddenIn(const std::string& text,
                                       const std::optional<VQRegLib::CBadCharacter>& found,
                                       const char* what) {
    if (!found) {
        return std::nullopt;
    }
    return fmt::format("{} must not hold {}: {}, byte {}", what, found->name, shown(text),
                       found->at + 1);
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
    switch (VQRegLib::badKeyName(name)) {
        case VQRegLib::eBadKeyName::eEmpty:
            return "a key name must not be empty";
        case VQRegLib::eBadKeyName::eTreeRoot:
            return "a key must not be named <root>";
        case VQRegLib::eBadKeyName::eNone:
            break;
    }
    return forbiddenIn(name, VQRegLib::badCharacterInKeyName(name), "a key name");
}

std::optional<std::string> brokenRuleOfValueName(const std::string& name) {
    return forbiddenIn(name, VQRegLib::badCharacterInValueName(name), "a value name");
}

std::optional<std::string> brokenRuleOfValue(const Value& value) {
    if (const auto broken = brokenRuleOfValueName(value.name)) {
        return broken;
    }
    if (value.type == CRegLib::eNone) {
        return "a value must be binary, a dword or a string: " + shown(value.name);
    }
    if (value.type == CRegLib::eString) {
        if (const auto broken =
                forbiddenIn(value.bytes, VQRegLib::badCharacterInText(value.bytes), "a text")) {
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
