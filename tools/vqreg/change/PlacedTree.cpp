#include "tools/vqreg/change/PlacedTree.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Rules.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

void checkReadable(const std::string& file, const ConfigText& parsed) {
    if (!parsed.isReadable()) {
        throw CommandError(eExit::eMalformed, file + ": the text is malformed");
    }
}

ConfigText parsedPart(std::string_view text) {
    ConfigText parsed = parseConfigText(text);
    std::erase_if(parsed.findings, [](const Finding& finding) {
        return finding.kind == Finding::eKind::eMissingParent;
    });
    return parsed;
}

// Removes the key at the path from the tree and says whether anything else is there but the keys on
// the way to it.
bool takeKey(Key& top, const Path& path, Key& taken) {
    Key* key = &top;
    for (const std::string& name : path) {
        if (!key->values.empty() || key->keys.size() != 1 ||
            key->keys.begin()->first != folded(name)) {
            return false;
        }
        key = &key->keys.begin()->second;
    }
    taken = std::move(*key);
    return true;
}

}  // namespace

Key parsedTop(const std::string& file, std::string_view text, bool isPart) {
    ConfigText parsed = isPart ? parsedPart(text) : parseConfigText(text);
    printFindings(file, parsed.findings);
    checkReadable(file, parsed);
    return std::move(parsed.top);
}

void checkClean(const std::string& file, const ConfigText& parsed) {
    checkReadable(file, parsed);
    if (std::any_of(parsed.findings.begin(), parsed.findings.end(), [](const Finding& finding) {
            return finding.kind == Finding::eKind::eTruncated;
        })) {
        throw CommandError(eExit::eWrongKind,
                           file + ": the text holds what a configuration file cannot give back");
    }
}

PlacedTree placedTree(const StoreOptions& options, const std::string& file, std::string_view text,
                      const Path& path, const std::string& advice) {
    ConfigText parsed = parsedPart(text);
    printFindings(file, parsed.findings);
    checkClean(file, parsed);
    Key top = std::move(parsed.top);
    PlacedTree tree{path, {}, !top.keys.empty()};
    const Path full = fullPath(options, path);
    const bool isEmpty = top.keys.empty() && top.values.empty();
    if (!isEmpty && !takeKey(top, full, tree.key)) {
        throw CommandError(eExit::eWrongKind,
                           fmt::format("{}: the text has more than the key [{}]; {}", file,
                                       printable(plainPath(full)), advice));
    }
    return tree;
}

void checkRules(const StoreOptions& options, const PlacedTree& tree) {
    const std::vector<std::string> broken =
        brokenRulesOfTree(rootName(options), tree.path, tree.key);
    if (broken.empty()) {
        return;
    }
    for (std::size_t i = 0; i + 1 < broken.size(); ++i) {
        note(broken[i]);
    }
    throw CommandError(eExit::eWrongKind, broken.back());
}

}  // namespace vqreg
