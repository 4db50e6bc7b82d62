// vqreg help: the same as --help.
#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

// The application itself would answer with the help of the command that is being carried out.
std::string helpOf(const CLI::App& app) {
    return app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
}

void help(const CLI::App& app, const std::optional<std::string>& name) {
    Output& output = Output::standard();
    if (!name) {
        output.write(helpOf(app));
        return;
    }
    const auto commands =
        app.get_subcommands([&](const CLI::App* each) { return each->get_name() == *name; });
    if (commands.empty()) {
        throw CommandError(eExit::eUsage, unknownCommand(app, *name));
    }
    output.write(helpOf(*commands.front()));
}

}  // namespace

void defineHelp(CLI::App& command, Context& /*context*/) {
    const auto name = std::make_shared<std::optional<std::string>>();
    command.add_option("COMMAND", *name, "The command; without it, all are listed")->type_name("");
    command.callback([&command, name] { help(*command.get_parent(), *name); });
}

}  // namespace vqreg
