// vqreg rm and mkkey.
#include <memory>

#include "tools/vqreg/Commands.h"
#include "tools/vqreg/Confirm.h"
#include "tools/vqreg/ExitCode.h"
#include "tools/vqreg/Output.h"

namespace vqreg {

namespace {

struct RmOptions {
    std::string key;
    std::optional<std::string> name;
    bool recursive = false;
    bool force = false;
};

CommandError missing(const std::string& what) {
    return {eExit::eNegative, what + " does not exist"};
}

void askToRemove(const RmOptions& options, const std::string& what) {
    if (!options.force && !confirm("remove " + what + "?")) {
        throw CommandError(eExit::eNegative, "nothing has been removed");
    }
}

void removeValue(StoreSession& store, const RmOptions& options, const Path& path) {
    const std::string what =
        fmt::format("the value \"{}\" of {}", printable(*options.name), nameOfKey(path));
    if (!store.value(path, *options.name)) {
        throw missing(what);
    }
    askToRemove(options, what);
    if (!store.removeValue(path, *options.name)) {
        throw missing(what);
    }
}

void removeKey(StoreSession& store, const RmOptions& options, const Path& path) {
    const auto key = store.load(path);
    if (!key) {
        throw missing(nameOfKey(path));
    }
    const Count count = countBelow(*key);
    const bool isEmpty = count.keys == 0 && count.values == 0;
    if (path.empty() && !options.recursive) {
        throw CommandError(eExit::eNegative, "the root key stays; -r removes what is below it");
    }
    if (!isEmpty && !options.recursive) {
        throw CommandError(eExit::eNegative,
                           nameOfKey(path) + " is not empty; -r removes it with all below it");
    }
    const std::string what =
        isEmpty ? nameOfKey(path)
                : fmt::format("{} with {} {} and {} {} below it", nameOfKey(path), count.keys,
                              count.keys == 1 ? "key" : "keys", count.values,
                              count.values == 1 ? "value" : "values");
    askToRemove(options, what);
    if (!store.removeKey(path)) {
        throw missing(nameOfKey(path));
    }
}

void rm(const RmOptions& options, Context& context) {
    if (options.name && options.recursive) {
        throw CommandError(eExit::eUsage, "-r is for keys; a value has nothing below it");
    }
    StoreSession store(context.store);
    const Path path = splitPath(options.key);
    if (options.name) {
        removeValue(store, options, path);
    } else {
        removeKey(store, options, path);
    }
}

}  // namespace

void addRm(CLI::App& app, Context& context) {
    const auto options = std::make_shared<RmOptions>();
    CLI::App* const command = app.add_subcommand("rm", "Remove a value, or a key");
    command->add_flag("-r", options->recursive, "Remove the key with everything below it");
    command->add_flag("-f", options->force, "Do not ask, not even on a terminal");
    command->add_option("KEY", options->key, "Path of the key")->required()->type_name("");
    command->add_option("NAME", options->name, "Name of the value; without it the key is removed")
        ->type_name("");
    command->callback([options, &context] { rm(*options, context); });
}

void addMkkey(CLI::App& app, Context& context) {
    const auto key = std::make_shared<std::string>();
    CLI::App* const command =
        app.add_subcommand("mkkey", "Create a key, and the keys above it that are missing");
    command->add_option("KEY", *key, "Path of the key")->required()->type_name("");
    command->callback([key, &context] { StoreSession(context.store).createKey(splitPath(*key)); });
}

}  // namespace vqreg
