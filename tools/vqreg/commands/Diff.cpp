// vqreg diff: what makes one configuration file out of another.
#include <fmt/format.h>

#include <memory>

#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/change/PlacedTree.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Difference.h"

namespace vqreg {

namespace {

struct DiffOptions {
    std::string before;
    std::string after;
    bool json = false;
};

Key topOf(const Context& context, const std::string& name) {
    if (name != "-") {
        return parsedTop(name, readInput(name), true);  // perhaps what export has printed
    }
    const std::string file = storeFile(context.store);
    return parsedTop(file, readStoreFile(file, rootName(context.store)));
}

void runDiff(Context& context, const DiffOptions& options) {
    const Key before = topOf(context, options.before);
    const Key after = topOf(context, options.after);
    const std::vector<Change> changes = difference(before, after);
    printChanges(changes, {}, options.json, rootPath(context.store));
    context.exitCode = changes.empty() ? 0 : 1;
}

}  // namespace

void defineDiff(CLI::App& command, Context& context) {
    const auto options = std::make_shared<DiffOptions>();
    command.add_option("A", options->before, "A file; - is the store")->required()->type_name("");
    command.add_option("B", options->after, "A file; - is the store")->required()->type_name("");
    command.add_flag("--json", options->json, "One JSON object per line");
    command.footer(
        "A line begins with + for what only B has, - for what only A has, ~ for a value that\n"
        "differs. The order of lines and the case of names make no difference.\n"
        "Exit codes: 0 no difference, 1 differences.");
    command.callback([&context, options] { runDiff(context, *options); });
}

}  // namespace vqreg
