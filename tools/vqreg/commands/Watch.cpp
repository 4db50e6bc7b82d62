// vqreg watch: prints each change of the store as it happens.
#include <fmt/format.h>

#include <memory>

#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/ChangeSignals.h"
#include "tools/vqreg/store/KeyReader.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

namespace {

struct WatchOptions {
    std::string key = "/";
    bool initial = false;
    bool json = false;
};

void print(const std::vector<Change>& changes, const Context& context, bool json) {
    printChanges(changes, rootPath(context.store), json);
    Output::standard().flush();
}

// The session ends with this: nobody who deletes something need fear one that only follows.
Path tidiedAndKnown(const Context& context, const std::string& key) {
    StoreSession session(context.store);
    Path path = session.tidied(splitPath(key));
    if (!session.hasKey(path)) {
        note(nameOfKey(path) + " does not exist yet");
    }
    return path;
}

void runWatch(Context& context, const WatchOptions& options) {
    const Path path = tidiedAndKnown(context, options.key);
    // First of all: what happens from here on is told or read.
    ChangeSignals signals(storeFile(context.store));
    KeyReader reader(context.store, path);
    Key known = reader.read(false).value_or(Key());
    if (options.initial) {
        print(difference(Key(), known, path), context, options.json);
    }
    while (const std::optional<eNews> news = signals.wait()) {
        if (*news == eNews::eNone) {
            continue;
        }
        std::optional<Key> now = reader.read(*news == eNews::eSlowPoll);
        if (now) {
            print(difference(known, *now, path), context, options.json);
            known = std::move(*now);
        }
    }
}

}  // namespace

void defineWatch(CLI::App& command, Context& context) {
    const auto options = std::make_shared<WatchOptions>();
    command.add_option("KEY", options->key, "The key; without it, the root key")->type_name("");
    command.add_flag("--initial", options->initial, "First print what is there, as created");
    command.add_flag("--json", options->json, "One JSON object per line");
    command.footer(
        "A line begins with + for what is created, ~ for a value that changes, - for what is\n"
        "deleted. Two changes in quick succession may show as one. SIGINT and SIGTERM end it.");
    command.callback([&context, options] { runWatch(context, *options); });
}

}  // namespace vqreg
