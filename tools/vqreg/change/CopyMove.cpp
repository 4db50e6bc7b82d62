#include "tools/vqreg/change/CopyMove.h"

#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Rules.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

// Two arguments are keys, three or four are about a value.
struct CopyMoveOptions {
    std::string first;
    std::string second;
    std::optional<std::string> third;
    std::optional<std::string> fourth;
    bool force = false;
    bool move = false;
    ReportOptions report;

    const char* verb() const { return move ? "move" : "copy"; }
};

bool isSame(const Path& left, const Path& right) {
    return left.size() == right.size() && isSameOrBelow(left, right);
}

void writeTree(StoreSession& store, const Path& path, const Key& key) {
    store.createKey(path);
    for (const auto& entry : key.values) {
        store.set(path, entry.second);
    }
    for (const auto& entry : key.keys) {
        Path childPath = path;
        childPath.push_back(entry.second.name);
        writeTree(store, childPath, entry.second);
    }
}

void checkPlaces(const CopyMoveOptions& options, const Path& from, const Path& to) {
    if (isSame(from, to) && (!options.move || from == to)) {
        throw CommandError(eExit::eUsage,
                           "cannot " + std::string(options.verb()) + " a key to itself");
    }
    if (options.move && from.empty()) {
        throw CommandError(eExit::eUsage, "cannot move the root key");
    }
    if (options.move && !isSame(from, to) && isSameOrBelow(to, from)) {
        throw CommandError(eExit::eUsage, "cannot move a key below itself");
    }
}

// What a move deletes: what was at the old place and is not at the new one, which may be another
// spelling of the old.
std::vector<Change> deletedBy(const Path& from, const Path& to, const Key& key) {
    std::vector<Change> deleted = difference(key, Key(), from);
    deleted.insert(deleted.begin(), {Change::eKind::eDeleted, from, {}, {}});
    const Key written = topAround(to, key);
    std::erase_if(deleted, [&](const Change& change) {
        const Key* const place = findKey(written, change.path);
        return place && (change.isOfKey() || place->values.contains(folded(change.value().name)));
    });
    return deleted;
}

// One update from the first look on. The whole tree is checked before the first change.
void copyKey(const CopyMoveOptions& options, Changing& changing, const StoreOptions& storeOptions) {
    StoreSession& store = changing.store();
    const Path from = store.tidied(splitPath(options.first));
    const Path to = store.tidied(splitPath(options.second));
    checkPlaces(options, from, to);
    changing.begin();
    const auto key = store.load(from);
    if (!key) {
        throw CommandError(eExit::eNegative, nameOfKey(from) + " does not exist");
    }
    if (!isSame(from, to) && !options.force && store.hasKey(to)) {
        throw CommandError(eExit::eNegative, nameOfKey(to) + " exists already; -f merges into it");
    }
    const auto broken = brokenRulesOfTree(rootName(storeOptions), to, *key);
    if (!broken.empty()) {
        throw CommandError(eExit::eWrongKind, broken.front());
    }
    if (options.move) {
        // First, so that a key can be moved to another spelling of its own name.
        changing.record(deletedBy(from, to, *key));
        store.removeKey(from);
    }
    writeTree(store, to, *key);
    changing.finish();
}

void copyValue(const CopyMoveOptions& options, Changing& changing) {
    StoreSession& store = changing.store();
    const Path from = store.tidied(splitPath(options.first));
    const Path to = store.tidied(splitPath(*options.third));
    const std::string newName = options.fourth.value_or(options.second);
    const bool isSamePlace = isSame(from, to) && folded(options.second) == folded(newName);
    if (isSamePlace && (!options.move || options.second == newName)) {
        throw CommandError(eExit::eUsage,
                           "cannot " + std::string(options.verb()) + " a value to itself");
    }
    changing.begin();
    auto value = store.value(from, options.second);
    if (!value) {
        throw CommandError(eExit::eNegative, nameOfValue(from, options.second) + " does not exist");
    }
    if (!isSamePlace && !options.force && store.value(to, newName)) {
        throw CommandError(eExit::eNegative,
                           nameOfValue(to, newName) + " exists already; -f replaces it");
    }
    if (options.move && !isSamePlace) {
        changing.record({Change::eKind::eDeleted, from, value, {}});
    }
    value->name = newName;
    if (const auto broken = brokenRuleOfValue(*value)) {
        throw CommandError(eExit::eWrongKind, *broken);
    }
    if (options.move) {
        store.removeValue(from, options.second);
    }
    store.set(to, *value);
    changing.finish();
}

void copy(const CopyMoveOptions& options, Context& context) {
    Changing changing(context, options.report,
                      options.move ? Changing::eDeletes::eMaybe : Changing::eDeletes::eNo);
    if (options.third) {
        copyValue(options, changing);
    } else {
        copyKey(options, changing, context.store);
    }
}

}  // namespace

void defineCopyMove(CLI::App& command, Context& context, bool move) {
    const auto options = std::make_shared<CopyMoveOptions>();
    options->move = move;
    setUsage(command, command.get_name() + " [-f]" + (move ? " [--verify S]" : "") +
                          " KEY [NAME] NEWKEY [NEWNAME]");
    command.add_flag("-f", options->force, "Replace a value, or merge into a key, that exists");
    if (move) {
        addVerifyOption(command, options->report);
    }
    command.add_option("KEY", options->first, "Path of the key")->required()->type_name("");
    command
        .add_option("NEWKEY|NAME", options->second,
                    "With two arguments the path of the new key; else the name of the value")
        ->required()
        ->type_name("");
    command.add_option("NEWKEY", options->third, "Path of the key that the value goes to")
        ->type_name("");
    command.add_option("NEWNAME", options->fourth, "New name of the value (default: its old name)")
        ->type_name("");
    command.callback([options, &context] { copy(*options, context); });
}

}  // namespace vqreg
