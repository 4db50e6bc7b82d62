#include "tools/vqreg/commands/CommandTable.h"

namespace vqreg {

namespace {

constexpr CommandEntry kCommands[] = {
    {.name = "get", .summary = "Print a value", .define = defineGet},
    {.name = "set",
     .summary = "Set a value; the key is created when it is missing",
     .define = defineSet,
     .makesStore = true,
     .isForBatch = true},
    {.name = "incr",
     .summary = "Add to a number, and print the new number",
     .define = defineIncr,
     .makesStore = true,
     .isForBatch = true},
    {.name = "rm",
     .summary = "Remove a value, or a key",
     .define = defineRm,
     .isForBatch = true,
     .mayDelete = true},
    {.name = "mkkey",
     .summary = "Create a key, and the keys above it that are missing",
     .define = defineMkkey,
     .makesStore = true,
     .isForBatch = true},
    {.name = "ls", .summary = "List the values and sub keys of a key", .define = defineLs},
    {.name = "tree", .summary = "Draw what is below a key", .define = defineTree},
    {.name = "cp",
     .summary = "Copy a value, or a key with all below it",
     .define = defineCp,
     .isForBatch = true},
    {.name = "mv",
     .summary = "Move a value, or a key with all below it",
     .define = defineMv,
     .isForBatch = true,
     .mayDelete = true},
    {.name = "batch",
     .summary = "Run commands from standard input as one update",
     .define = defineBatch,
     .makesStore = true},
    {.name = "export", .summary = "Print a key and all below it as text", .define = defineExport},
    {.name = "import",
     .summary = "Put a text into the store",
     .define = defineImport,
     .makesStore = true},
    {.name = "apply",
     .summary = "Make so what a text says, and leave the rest as it is",
     .define = defineApply},
    {.name = "diff", .summary = "Compare two configuration files", .define = defineDiff},
    {.name = "watch", .summary = "Print each change as it happens", .define = defineWatch},
    {.name = "run",
     .summary = "Run a program with the values of a key as its environment",
     .define = defineRun,
     .runsProgram = true},
    {.name = "check", .summary = "Find every fault of a configuration file", .define = defineCheck},
    {.name = "edit",
     .summary = "Change a key in an editor",
     .define = defineEdit,
     .makesStore = true},
    {.name = "browse",
     .summary = "Show a store on the screen, and change it there",
     .define = defineBrowse},
    {.name = "notify",
     .summary = "Make all processes look at the file, as after a change by hand",
     .define = defineNotify},
    {.name = "info", .summary = "Tell where the store is and how it is", .define = defineInfo},
    {.name = "restore",
     .summary = "Show what the backup would change, and bring it back",
     .define = defineRestore},
    {.name = "clean",
     .summary = "Remove temporary files that killed processes left beside the file",
     .define = defineClean},
    {.name = "complete",
     .summary = "Names for the completion of a shell",
     .define = defineComplete},
    {.name = "help", .summary = "Explain a command, or list them all", .define = defineHelp},
};

}  // namespace

std::span<const CommandEntry> commandTable() {
    return kCommands;
}

CLI::App& addCommand(CLI::App& app, const CommandEntry& entry, Context& context) {
    CLI::App& command = *app.add_subcommand(entry.name, entry.summary);
    entry.define(command, context);
    return command;
}

}  // namespace vqreg
