#include "tools/vqreg/commands/Command.h"

#include <VQRegLib.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/terminal/Interruption.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

int exitCode(eExit code) {
    return static_cast<int>(code);
}

void addGlobalOptions(CLI::App& app, Context& context) {
    app.add_option("--file", context.store.file,
                   "Configuration file (default: /velquist/etc/Velquist.cfg where /velquist/etc "
                   "exists, else /etc/Velquist.cfg)")
        ->type_name("FILE");
    app.add_option("--root", context.store.root, "Root key (default: Velquist)")->type_name("NAME");
    app.add_option("--timeout", context.store.timeoutSeconds,
                   "Seconds to wait for the lock of the store (default: 30)")
        ->type_name("S")
        ->check(secondsRule());
    app.add_flag_callback(
        "--no-notify", [&context] { context.store.notify = false; },
        "Do not tell other processes of changes");
    app.add_flag_callback(
        "--sync", [] { ::setenv("VQREG_SYNC", "1", 1); },
        "Wait until a change is on the disk (as VQREG_SYNC=1)");
    app.add_option_function<std::string>(
           "--color",
           [&context](const std::string& when) {
               context.color = when == "always"  ? eColor::eAlways
                               : when == "never" ? eColor::eNever
                                                 : eColor::eAuto;
           },
           "Colour: auto (default), always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    app.set_version_flag("--version", "vqreg " VQREG_VERSION, "Print the version and exit");
}

void addCommands(CLI::App& app, Context& context) {
    for (const CommandEntry& entry : commandTable()) {
        CLI::App& command = addCommand(app, entry, context);
        if (entry.makesStore) {
            command.preparse_callback([&context](std::size_t) { context.store.create = true; });
        }
    }
}

void printHelp(const std::string& text) {
    Output::standard().write(text);
    Output::standard().flush();
}

int usageError(const CLI::App& app, const std::string& message) {
    note(message + "\nusage: " + usageLine(chosen(app)));
    return exitCode(eExit::eUsage);
}

// What stands behind "--" of a command that runs a program: the parser would find options and lists in
// it.
std::vector<std::string> takeProgram(const CLI::App& app, std::vector<std::string>& words) {
    const std::optional<std::string> command = commandWord(app, words);
    const bool isTaken = std::ranges::any_of(commandTable(), [&](const CommandEntry& entry) {
        return entry.runsProgram && command == entry.name;
    });
    const auto marks = isTaken ? std::ranges::find(words, "--") : words.end();
    if (marks == words.end()) {
        return {};
    }
    std::vector<std::string> program(marks + 1, words.end());
    words.erase(marks, words.end());
    return program;
}

int parseAndRun(CLI::App& app, Context& context, int argc, char** argv) {
    try {
        std::vector<std::string> words(argv + 1, argv + std::max(argc, 1));
        context.program = takeProgram(app, words);
        app.parse(parserOrder(words));
        Output::standard().flush();
        return context.exitCode;
    } catch (const CLI::CallForHelp&) {
        printHelp(chosen(app).help());
        return 0;
    } catch (const CLI::CallForVersion& version) {
        printHelp(std::string(version.what()) + '\n');
        return 0;
    } catch (const CLI::ParseError& error) {
        return usageError(app, explain(app, error));
    } catch (const CommandError& error) {
        Output::standard().flush();
        if (error.code() == eExit::eUsage) {
            return usageError(app, error.what());
        }
        note(error.what());
        return exitCode(error.code());
    }
}

int run(int argc, char** argv) {
    Context context;
    CLI::App app(
        "Looks into a configuration store and changes it.\n"
        "KEY is a path below the root key with \"/\" between names; \"/\" or \".\" is the "
        "root key itself.",
        "vqreg");
    app.formatter(makeFormatter());
    app.require_subcommand(1);
    app.fallthrough();
    addGlobalOptions(app, context);
    addCommands(app, context);
    app.parse_complete_callback([&context] { Output::standard().setColor(context.color); });
    return parseAndRun(app, context, argc, argv);
}

}  // namespace

int runCommand(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const ClosedPipe&) {
        return 0;
    } catch (const Interrupted& interrupted) {
        endProcess(interrupted);
    } catch (const CommandError& error) {
        note(error.what());
        return exitCode(error.code());
    } catch (const std::exception& error) {
        note(error.what());
    } catch (const VQException& error) {
        note(std::string("out of memory in the library, ") + error.m_szText);
    }
    return exitCode(eExit::eUnavailable);
}

}  // namespace vqreg
