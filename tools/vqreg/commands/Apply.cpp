// vqreg apply: makes true what a text says, for those who come back to it again and again.
#include <memory>

#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/change/PlacedTree.h"
#include "tools/vqreg/change/TreeChange.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/terminal/Listing.h"

namespace vqreg {

namespace {

struct ApplyOptions {
    TextOptions text;
    bool check = false;
    bool diff = false;
    ReportOptions report;
};

void showDifference(const Context& context, const ApplyOptions& options,
                    const std::vector<Change>& changes) {
    if (options.diff && !options.report.json) {
        printChanges(changes, rootPath(context.store), false);
    }
}

void runApply(Context& context, const ApplyOptions& options) {
    const PlacedTree tree = readTree(context.store, options.text);
    std::vector<Change> changes = plannedChanges(context.store, options.text, tree);
    if (!tree.isNamed) {
        changes.clear();  // such a text says nothing, not even that there is a store
    }
    const bool isChange = !changes.empty();
    if (options.check || !isChange) {
        showDifference(context, options, changes);
        reportChanges(context, options.report, rootPath(context.store), changes, isChange);
        context.exitCode = isChange ? 1 : 0;
        return;
    }
    context.store.create = true;
    Changing changing(context, options.report);
    changeTree(changing, context.store, options.text, tree);
    showDifference(context, options, changing.changes());
}

}  // namespace

void defineApply(CLI::App& command, Context& context) {
    const auto options = std::make_shared<ApplyOptions>();
    command
        .add_option("FILE", options->text.file,
                    "The text, as `export` prints it in either form; - is standard input")
        ->required()
        ->type_name("");
    command.add_option("--key", options->text.key, "The one key that the text is about")
        ->type_name("KEY");
    command.add_flag("--check", options->check, "Change nothing; exit code 1 if there is need");
    command.add_flag("--diff", options->diff, "Print the changes");
    addJsonOption(command, options->report);
    command.footer(
        "All changes become one write. Nothing is written when everything is so already.\n"
        "Exit codes of --check: 0 no changes, 1 changes.");
    command.callback([&context, options] { runApply(context, *options); });
}

}  // namespace vqreg
