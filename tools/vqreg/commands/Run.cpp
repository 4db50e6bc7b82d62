// vqreg run: a program with the values of a key as its environment.
#include <memory>
#include <optional>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/Program.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/ChangeSource.h"
#include "tools/vqreg/store/Keeper.h"
#include "tools/vqreg/store/KeyReader.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

void runProgram(Context& context, const RunOptions& options) {
    if (context.program.empty()) {
        throw CommandError(eExit::eUsage, "COMMAND is required behind \"--\"");
    }
    if (!options.restart && options.signal.empty()) {
        std::vector<std::string> variables;
        {
            StoreSession store(context.store);
            variables = environmentOf(store.loadValues(splitPath(options.key)), options.prefix);
        }
        Program(context.program).become(variables);
    }
    // First of all: what happens from here on is told or read.
    ChangeSource source(storeFile(context.store));
    std::optional<StoreSession> store(context.store);
    const Path path = store->tidied(splitPath(options.key));
    Keeper keeper(context.program, options, store->loadValues(path));
    store.reset();  // nobody who deletes something need fear one that only follows
    KeyReader reader(context.store, path);
    context.exitCode = keeper.run(source, reader);
}

CLI::Validator signalRule() {
    return CLI::Validator(
        [](const std::string& text) {
            return signalNumber(text) ? ""
                                      : "must be a signal such as HUP or 1, not \"" + text + '"';
        },
        "");
}

}  // namespace

void defineRun(CLI::App& command, Context& context) {
    const auto options = std::make_shared<RunOptions>();
    CLI::Option* const restart =
        command.add_flag("--restart", options->restart,
                         "Stop it when the values of KEY have changed, and start it again");
    command
        .add_option("--signal", options->signal, "Send it a signal when they have changed, as HUP")
        ->type_name("NAME")
        ->check(signalRule())
        ->excludes(restart);
    command
        .add_option("--grace", options->graceSeconds,
                    "Seconds after SIGTERM until it is killed (default: 10)")
        ->type_name("S")
        ->check(secondsRule())
        ->needs(restart);
    addPrefixOption(command, options->prefix);
    command.add_option("KEY", options->key, "The key whose values are its environment")
        ->required()
        ->type_name("");
    setUsage(command,
             "run [--restart] [--signal NAME] [--grace S] [--prefix P] KEY -- COMMAND "
             "[ARGUMENT...]");
    command.footer(
        "The variables are those of \"vqreg export --env\"; sub keys are not looked at. Without\n"
        "--restart and --signal, COMMAND takes the place of vqreg. Otherwise signals are passed "
        "on,\n"
        "it dies with vqreg unless it changes its user, and its exit code, or 128 and the number "
        "of\n"
        "its signal, is vqreg's.");
    command.callback([&context, options] { runProgram(context, *options); });
}

}  // namespace vqreg
