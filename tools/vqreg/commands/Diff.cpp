// vqreg diff: what makes one configuration file out of another.
#include <fmt/format.h>

#include <memory>

#include "tools/vqreg/change/TreeInput.h"
#include "tools/vqreg/commands/Commands.h"
#include "tools/vqreg/store/StoreFault.h"
#include "tools/vqreg/terminal/Output.h"

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
    printChanges(changes, {}, options.json, rootNames(context.store));
    context.exitCode = changes.empty() ? 0 : 1;
}

}  // namespace

void addDiff(CLI::App& app, Context& context) {
    CLI::App* const command = app.add_subcommand("diff", "Compare two configuration files");
    const auto options = std::make_shared<DiffOptions>();
    command->add_option("A", options->before, "A file; - is the store")->required()->type_name("");
    command->add_option("B", options->after, "A file; - is the store")->required()->type_name("");
    command->add_flag("--json", options->json, "One JSON object per line");
    command->footer(
        "A line begins with + for what only B has, - for what only A has, ~ for a value that\n"
        "differs. The order of lines and the case of names make no difference.\n"
        "Exit codes: 0 no difference, 1 differences.");
    command->callback([&context, options] { runDiff(context, *options); });
}

}  // namespace vqreg
