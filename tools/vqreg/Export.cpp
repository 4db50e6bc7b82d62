// vqreg export: the text of a key and everything below it.
#include <fmt/format.h>

#include <memory>

#include "tools/vqreg/Commands.h"
#include "tools/vqreg/ExitCode.h"
#include "tools/vqreg/JsonText.h"
#include "tools/vqreg/Output.h"
#include "tools/vqreg/Rules.h"
#include "tools/vqreg/TreeInput.h"

namespace vqreg {

namespace {

struct ExportOptions {
    std::string key = "/";
    bool json = false;
};

void runExport(Context& context, const ExportOptions& options) {
    Names path = splitPath(options.key);
    StoreSession session(context.store);
    std::optional<Key> key = session.load(path);
    if (!key) {
        throw CommandError(eExit::eNegative,
                           fmt::format("there is no key \"{}\"", printable(options.key)));
    }
    // A file that was edited by hand may hold what cannot be read back from a new text.
    for (const std::string& rule : brokenRulesOfTree(rootName(context.store), path, *key)) {
        note("warning: " + rule);
    }
    if (options.json) {
        Output::standard().write(composeJsonText(*key, joinPath(path)));
        return;
    }
    Names full = rootNames(context.store);
    full.insert(full.end(), path.begin(), path.end());
    Output::standard().write(composeConfigText(topAround(full, std::move(*key))));
}

}  // namespace

void addExport(CLI::App& app, Context& context) {
    CLI::App* const command = app.add_subcommand("export", "Print a key and all below it as text");
    const auto options = std::make_shared<ExportOptions>();
    command->add_option("KEY", options->key, "The key; without it, the root key")->type_name("");
    command->add_flag("--json", options->json, "As JSON instead of the text of a store's file");
    command->footer(
        "The text is that of a store's file, with the keys above KEY. `import` reads both forms.\n"
        "In JSON, a text that is not UTF-8 is \"hex:/\" and the hexadecimal digits of its bytes.");
    command->callback([&context, options] { runExport(context, *options); });
}

}  // namespace vqreg
