// vqreg import: puts a text into the store, in one update.
#include <memory>

#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/change/PlacedTree.h"
#include "tools/vqreg/change/TreeChange.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/terminal/Listing.h"

namespace vqreg {

namespace {

struct ImportOptions {
    TextOptions text;
    bool dryRun = false;
    ReportOptions report;
};

void showPlan(Context& context, const ImportOptions& options, const PlacedTree& tree) {
    const std::vector<Change> changes = plannedChanges(context.store, options.text, tree);
    const Path above = rootPath(context.store);
    if (!options.report.json) {
        printChanges(changes, above, false);
    }
    reportChanges(context, {options.report.json, {}}, above, changes, !changes.empty());
    context.exitCode = changes.empty() ? 0 : 1;
}

void runImport(Context& context, const ImportOptions& options) {
    const PlacedTree tree = readTree(context.store, options.text);
    if (options.dryRun) {
        showPlan(context, options, tree);
        return;
    }
    Changing changing(context, options.report,
                      options.text.replace ? Changing::eDeletes::eMaybe : Changing::eDeletes::eNo);
    changeTree(changing, context.store, options.text, tree);
}

}  // namespace

void defineImport(CLI::App& command, Context& context) {
    const auto options = std::make_shared<ImportOptions>();
    command
        .add_option("FILE", options->text.file,
                    "The text, as `export` prints it in either form; - is standard input")
        ->required()
        ->type_name("");
    command
        .add_option("--key", options->text.key,
                    "The one key that the text is about; without it, the root key, or the "
                    "\"key\" of a JSON text")
        ->type_name("KEY");
    CLI::Option* const merge = command.add_flag_callback(
        "--merge", [] {}, "Keep what only the store has (the default)");
    command
        .add_flag("--replace", options->text.replace,
                  "Delete what only the store has of the text's first key and below it")
        ->excludes(merge);
    command.add_flag("--dry-run", options->dryRun, "Print the changes and make none");
    addJsonOption(command, options->report);
    addVerifyOption(command, options->report);
    command.footer(
        "The whole text is checked before the first change, and all changes become one write.\n"
        "Exit codes of --dry-run: 0 no changes, 1 changes.");
    command.callback([&context, options] { runImport(context, *options); });
}

}  // namespace vqreg
