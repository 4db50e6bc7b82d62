// vqreg complete: names for the completion of a shell.
#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

namespace {

struct CompleteOptions {
    std::string what;
    std::string first;
    std::string second;
};

void printKeys(const Key& key, const std::string& path, const std::string& prefix) {
    for (const auto& entry : key.keys) {
        const std::string childPath =
            path.empty() ? entry.second.name : path + '/' + entry.second.name;
        if (folded(childPath).starts_with(prefix)) {
            Output::standard().line(childPath);
        }
        printKeys(entry.second, childPath, prefix);
    }
}

// The file is read without the store's lock and without the library: a person who presses a key
// shall not wait, and shall see no message.
void complete(const CompleteOptions& options, const Context& context) {
    std::string text;
    try {
        text = readStoreFile(storeFile(context.store), rootName(context.store));
    } catch (const CommandError&) {
        return;
    }
    const ConfigText config = parseConfigText(text);
    const Key* const root = findKey(config.top, rootPath(context.store));
    if (!root) {
        return;
    }
    if (options.what == "keys") {
        printKeys(*root, "", folded(options.first));
        return;
    }
    Path path = splitPath(options.first);
    if (path.size() > 1 && path.back().empty()) {
        path.pop_back();  // the "/" that stands behind keys in listings
    }
    const Key* const key = findKey(*root, path);
    const std::string prefix = folded(options.second);
    for (const auto& [name, value] : key ? key->values : std::map<std::string, Value>()) {
        if (name.starts_with(prefix)) {
            Output::standard().line(value.name);
        }
    }
}

}  // namespace

void defineComplete(CLI::App& command, Context& context) {
    const auto options = std::make_shared<CompleteOptions>();
    command.group("");
    command.add_option("WHAT", options->what, "keys or values")
        ->required()
        ->type_name("")
        ->check(CLI::IsMember({"keys", "values"}).description(""));
    command.add_option("FIRST", options->first, "Beginning of a key, or the key of the values")
        ->type_name("");
    command.add_option("SECOND", options->second, "Beginning of a value's name")->type_name("");
    command.callback([options, &context] { complete(*options, context); });
}

}  // namespace vqreg
