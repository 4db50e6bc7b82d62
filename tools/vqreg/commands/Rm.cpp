// vqreg rm: removes a value or a key.
#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/terminal/Confirm.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

namespace {

struct RmOptions {
    std::string key;
    std::optional<std::string> name;
    bool recursive = false;
    bool force = false;
    bool ifExists = false;
    bool wholeStore = false;
    ReportOptions report;
};

// What there is to be removed: the changes, and the words for it.
struct Removal {
    std::vector<Change> changes;
    std::string what;
};

std::optional<Removal> removalOfValue(StoreSession& store, const RmOptions& options,
                                      const Path& path) {
    const std::optional<Value> value = store.value(path, *options.name);
    if (!value) {
        return std::nullopt;
    }
    return Removal{{{Change::eKind::eDeleted, path, value, {}}}, nameOfValue(path, *options.name)};
}

std::optional<Removal> removalOfKey(StoreSession& store, const RmOptions& options,
                                    const Path& path) {
    const std::optional<Key> key = store.load(path);
    if (!key) {
        return std::nullopt;
    }
    const Count count = countBelow(*key);
    const bool isEmpty = count.keys == 0 && count.values == 0;
    if (!isEmpty && !options.recursive) {
        throw CommandError(eExit::eWrongKind,
                           nameOfKey(path) + " is not empty; -r removes it with all below it");
    }
    Removal removal{difference(*key, Key(), path), nameOfKey(path)};
    if (!path.empty()) {
        removal.changes.insert(removal.changes.begin(), {Change::eKind::eDeleted, path, {}, {}});
    }
    if (!isEmpty) {
        removal.what += fmt::format(" with {} {} and {} {} below it", count.keys,
                                    count.keys == 1 ? "key" : "keys", count.values,
                                    count.values == 1 ? "value" : "values");
    }
    return removal;
}

std::optional<Removal> removalOf(StoreSession& store, const RmOptions& options, const Path& path) {
    auto removal =
        options.name ? removalOfValue(store, options, path) : removalOfKey(store, options, path);
    if (!removal && !options.ifExists) {
        const std::string what = options.name ? nameOfValue(path, *options.name) : nameOfKey(path);
        throw CommandError(eExit::eNegative, what + " does not exist");
    }
    return removal;
}

// Nobody else has to wait until the question is answered.
void askToRemove(Changing& changing, const RmOptions& options, const Path& path) {
    if (const auto removal = removalOf(changing.store(), options, path)) {
        changing.warn();
        if (!confirm("remove " + removal->what + "?")) {
            throw CommandError(eExit::eNegative, "nothing has been removed");
        }
    }
}

void remove(Changing& changing, const RmOptions& options, const Path& path) {
    changing.begin();
    if (const auto removal = removalOf(changing.store(), options, path)) {
        changing.record(removal->changes);
        options.name ? changing.store().removeValue(path, *options.name)
                     : changing.store().removeKey(path);
    }
    changing.finish();
}

void checkOptions(const RmOptions& options, const Path& path) {
    if (options.name && options.recursive) {
        throw CommandError(eExit::eUsage, "-r is for keys; a value has nothing below it");
    }
    const bool isOfRoot = path.empty() && !options.name;
    if (isOfRoot && !options.recursive) {
        throw CommandError(eExit::eWrongKind,
                           "the root key stays; -r --whole-store removes what is below it");
    }
    if (isOfRoot && !options.wholeStore) {
        throw CommandError(eExit::eUsage,
                           "-r of the root key removes the whole store; add --whole-store");
    }
    if (!isOfRoot && options.wholeStore) {
        throw CommandError(eExit::eUsage, "--whole-store is for the root key");
    }
}

void rm(const RmOptions& options, Context& context) {
    const Path given = splitPath(options.key);
    checkOptions(options, given);
    std::optional<Changing> changing;
    try {
        changing.emplace(context, options.report, Changing::eDeletes::eMaybe);
    } catch (const CommandError& error) {
        // Without the root key there is nothing below it.
        if (error.code() != eExit::eNegative || !options.ifExists) {
            throw;
        }
        reportChanges(context, options.report, {}, {}, false);
        return;
    }
    const Path path = changing->store().tidied(given);
    if (!options.force && !context.batch) {
        askToRemove(*changing, options, path);
    }
    remove(*changing, options, path);
}

}  // namespace

void defineRm(CLI::App& command, Context& context) {
    const auto options = std::make_shared<RmOptions>();
    command.add_flag("-r", options->recursive, "Remove the key with everything below it");
    command.add_flag("-f", options->force, "Do not ask, not even on a terminal");
    command.add_flag("--if-exists", options->ifExists, "Be content when there is nothing");
    command.add_flag("--whole-store", options->wholeStore,
                     "Needed to remove all that is below the root key");
    addJsonOption(command, options->report);
    addVerifyOption(command, options->report);
    command.add_option("KEY", options->key, "Path of the key")->required()->type_name("");
    command.add_option("NAME", options->name, "Name of the value; without it the key is removed")
        ->type_name("");
    command.callback([options, &context] { rm(*options, context); });
}

}  // namespace vqreg
