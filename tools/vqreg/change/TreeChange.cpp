#include "tools/vqreg/change/TreeChange.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/LineSplitter.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/change/PlacedTree.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Interruption.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/terminal/Progress.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/JsonText.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"
#include "tools/vqreg/text/TextLines.h"

namespace vqreg {

namespace {

// No line of a configuration file begins like this. Some programs put a mark before UTF-8.
bool isJson(const std::string& text) {
    const std::size_t mark = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;
    const std::size_t start = text.find_first_not_of(" \t\r\n", mark);
    return start != std::string::npos && text[start] == '{';
}

CommandError keylessFault(const TextOptions& options) {
    return {eExit::eMalformed,
            options.file +
                ": the text names no key, and would replace everything by nothing; "
                "nothing has been changed"};
}

bool isInFile(const StoreOptions& store, const Path& path) {
    const auto text = readStoreFileIfAny(storeFile(store), rootName(store));
    return text && findKey(parseConfigText(*text).top, fullPath(store, path));
}

std::optional<Path> placeGiven(const StoreOptions& store, const TextOptions& options) {
    if (!options.key) {
        return std::nullopt;
    }
    return tidiedPath(splitPath(*options.key),
                      [&](const Path& path) { return isInFile(store, path); });
}

PlacedTree readJsonTree(const StoreOptions& store, const TextOptions& options,
                        const std::string& text) {
    JsonText parsed = parseJsonText(text);
    printFindings(options.file, parsed.findings);
    if (!parsed.isReadable()) {
        throw CommandError(eExit::eMalformed, options.file + ": the text is malformed");
    }
    const Key& key = parsed.key;
    const bool isNamed =
        parsed.path || !key.name.empty() || !key.values.empty() || !key.keys.empty();
    if (options.replace && !isNamed) {
        throw keylessFault(options);
    }
    if (options.replace && !options.key && !parsed.path) {
        throw CommandError(eExit::eMalformed,
                           options.file +
                               ": the text has no \"key\", the key that it is to "
                               "replace; name the key with --key");
    }
    const auto given = placeGiven(store, options);
    return {given ? *given : splitPath(parsed.path.value_or("/")), std::move(parsed.key), isNamed};
}

// The names in the first key line; none in a text without one.
Path firstKeyOf(const std::string& text) {
    std::string_view rest = text;
    std::string_view path;
    for (std::string_view line; VQRegLib::takeLine(rest, true, line);) {
        if (line.starts_with('[') && VQRegLib::parseKeyLine(line, path) >= 0) {
            const auto names = namesOfKeyLine(path);
            if (!names.empty()) {
                return {names.begin(), names.end()};
            }
        }
    }
    return {};
}

PlacedTree readConfigTree(const StoreOptions& store, const TextOptions& options,
                          const std::string& text) {
    Path place = placeGiven(store, options).value_or(Path());
    if (!options.replace) {
        return placedTree(store, options.file, text, place);
    }
    const Path first = firstKeyOf(text);
    const Path root = rootPath(store);
    const Path full = joined(root, place);
    if (first.size() > full.size() && isSameOrBelow(first, full)) {
        place.assign(first.begin() + static_cast<std::ptrdiff_t>(root.size()), first.end());
    }
    PlacedTree tree = placedTree(store, options.file, text, place,
                                 "--replace replaces the first key of a text with what is below it "
                                 "and nothing else");
    if (!tree.isNamed) {
        throw keylessFault(options);
    }
    return tree;
}

// The key at a path from the top of the file; null when it is missing. Throws when there is a value
// in its place.
const Key* keyAt(const Key& top, const Path& path) {
    const Key* key = &top;
    for (const std::string& name : path) {
        if (key->values.contains(folded(name))) {
            throw CommandError(eExit::eWrongKind,
                               fmt::format("\"{}\" is a value of the key \"{}\", not a key",
                                           printable(name), printable(key->name)));
        }
        const auto found = key->keys.find(folded(name));
        if (found == key->keys.end()) {
            return nullptr;
        }
        key = &found->second;
    }
    return key;
}

void checkKinds(const StoreOptions& store, const TextOptions& options, const PlacedTree& tree,
                const Key& base) {
    const std::vector<std::string> conflicts =
        kindConflicts(base, tree.key, fullPath(store, tree.path));
    for (const std::string& conflict : conflicts) {
        note("a key here is a value there: " + conflict);
    }
    if (!conflicts.empty()) {
        throw CommandError(
            eExit::eWrongKind,
            options.file + ": keys and values cannot be merged; nothing has been changed");
    }
}

// What is to be done to a store that has `current` at the place.
std::vector<Change> plan(const StoreOptions& store, const TextOptions& options,
                         const PlacedTree& tree, const Key* current) {
    const Key nothing;
    const Key& base = current ? *current : nothing;
    if (!options.replace) {
        checkKinds(store, options, tree, base);
    }
    std::vector<Change> changes =
        difference(base, options.replace ? tree.key : merged(base, tree.key), tree.path);
    if (!current) {
        changes.insert(changes.begin(), {Change::eKind::eCreated, tree.path, {}, {}});
    }
    return changes;
}

}  // namespace

PlacedTree readTree(const StoreOptions& store, const TextOptions& options) {
    const std::string text = readInput(options.file);
    PlacedTree tree =
        isJson(text) ? readJsonTree(store, options, text) : readConfigTree(store, options, text);
    checkRules(store, tree);
    return tree;
}

std::vector<Change> plannedChanges(const StoreOptions& store, const TextOptions& options,
                                   const PlacedTree& tree) {
    const std::string file = storeFile(store);
    const std::optional<std::string> text = readStoreFileIfAny(file, rootName(store));
    Key top;
    if (text) {
        ConfigText parsed = parseConfigText(*text);
        if (!parsed.isReadable()) {
            parsedTop(file, *text);  // prints why, and throws
        }
        top = std::move(parsed.top);
    }
    return plan(store, options, tree, keyAt(top, fullPath(store, tree.path)));
}

void changeTree(Changing& changing, const StoreOptions& store, const TextOptions& options,
                const PlacedTree& tree) {
    std::optional<Interruption> interruption;
    changing.begin();
    const std::optional<Key> current = changing.store().load(tree.path);
    const std::vector<Change> changes = plan(store, options, tree, current ? &*current : nullptr);
    changing.record(changes);
    interruption.emplace();
    {
        Progress progress(changes.size(), "changes");
        changing.store().apply(changes, [&] {
            progress.step();
            Interruption::check();
        });
    }
    Interruption::check();
    if (!changing.isVerified()) {
        interruption->stay();  // what is written is written, and others are to be told
    }
    changing.write();
    interruption.reset();
    changing.report();
}

}  // namespace vqreg
