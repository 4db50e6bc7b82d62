// vqreg export: the text of a key and everything below it.
#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <string_view>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/terminal/Progress.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Environment.h"
#include "tools/vqreg/text/JsonText.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Rules.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

struct ExportOptions {
    std::string key = "/";
    bool json = false;
    bool env = false;
    std::string prefix;
};

constexpr std::size_t kExportPiece = 64UL * 1024;

// How much there is to read, for one who watches.
std::size_t entriesBelow(const StoreOptions& options, const Path& full) {
    const std::string file = storeFile(options);
    if (!Progress::isWatched() || !std::filesystem::exists(file)) {
        return 0;
    }
    const ConfigText text = parseConfigText(readStoreFile(file, rootName(options)));
    const Key* const key = findKey(text.top, full);
    const Count count = key ? countBelow(*key) : Count();
    return count.keys + count.values;
}

std::optional<Key> loadWatched(StoreSession& session, const Path& path, std::size_t entries) {
    Progress progress(entries, "keys and values");
    return session.load(path, -1, [&progress] { progress.step(); });
}

// Whoever reads it may be slow. On a terminal the text itself shows how far it is.
void writeText(const std::string& text) {
    Progress progress(text.size(), "bytes");
    for (std::size_t at = 0; at < text.size(); at += kExportPiece) {
        const std::string_view piece = std::string_view(text).substr(at, kExportPiece);
        Output::standard().write(piece);
        if (!Output::isTerminal()) {
            progress.step(piece.size());
        }
    }
}

// Begins with the line of the key that it is about: that tells an import what it covers. A text of the
// root key, which may be a store's file one day, has all lines.
std::string textOf(const Path& full, const Path& path, Key key) {
    std::string text = composeConfigText(topAround(full, std::move(key)));
    for (std::size_t above = path.empty() ? 0 : full.size() - 1; above > 0; --above) {
        text.erase(0, text.find('\n') + 1);
    }
    return text;
}

void runExport(Context& context, const ExportOptions& options) {
    StoreSession session(context.store);
    const Path path = session.tidied(splitPath(options.key));
    if (options.env) {
        Output::standard().write(
            environmentText(variablesOf(session.loadValues(path), options.prefix)));
        return;
    }
    const Path full = fullPath(context.store, path);
    std::optional<Key> key = loadWatched(session, path, entriesBelow(context.store, full));
    if (!key) {
        throw CommandError(eExit::eNegative, nameOfKey(path) + " does not exist");
    }
    // A file that was edited by hand may hold what cannot be read back from a new text.
    for (const std::string& rule : brokenRulesOfTree(rootName(context.store), path, *key)) {
        note("warning: " + rule);
    }
    if (options.json) {
        writeText(composeJsonText(*key, plainPath(path)));
        return;
    }
    writeText(textOf(full, path, std::move(*key)));
}

}  // namespace

void defineExport(CLI::App& command, Context& context) {
    const auto options = std::make_shared<ExportOptions>();
    command.add_option("KEY", options->key, "The key; without it, the root key")->type_name("");
    CLI::Option* const json =
        command.add_flag("--json", options->json, "As JSON instead of the text of a store's file");
    CLI::Option* const env =
        command
            .add_flag("--env", options->env,
                      "Only the values of KEY, as NAME=\"text\" for units and shells")
            ->excludes(json);
    addPrefixOption(command, options->prefix)->needs(env);
    command.footer(
        "The text is that of a store's file, and begins with KEY. `import` reads both forms.\n"
        "In JSON, a text that is not UTF-8 is \"hex:/\" and the hexadecimal digits of its bytes.\n"
        "With --env, names are in upper case with \"_\" for what no variable may have.");
    command.callback([&context, options] { runExport(context, *options); });
}

}  // namespace vqreg
