// The commands, one file each, and what is to be known of all of them.
#ifndef TOOLS_VQREG_COMMANDS_COMMANDTABLE_H
#define TOOLS_VQREG_COMMANDS_COMMANDTABLE_H

#include <CLI/CLI.hpp>
#include <span>

#include "tools/vqreg/change/Context.h"

namespace vqreg {

struct CommandEntry {
    const char* name;
    const char* summary;
    // Gives the command its options and arguments, and what it does.
    void (*define)(CLI::App& command, Context& context);
    // All others only look at a store, or change what must be there already.
    bool makesStore = false;
    bool isForBatch = false;
    bool mayDelete = false;    // in a batch
    bool runsProgram = false;  // what stands behind "--" is that program's
};

// In the order in which they are listed.
std::span<const CommandEntry> commandTable();

CLI::App& addCommand(CLI::App& app, const CommandEntry& entry, Context& context);

// In the file of each.
void defineGet(CLI::App& command, Context& context);
void defineSet(CLI::App& command, Context& context);
void defineIncr(CLI::App& command, Context& context);
void defineRm(CLI::App& command, Context& context);
void defineMkkey(CLI::App& command, Context& context);
void defineLs(CLI::App& command, Context& context);
void defineTree(CLI::App& command, Context& context);
void defineCp(CLI::App& command, Context& context);
void defineMv(CLI::App& command, Context& context);
void defineBatch(CLI::App& command, Context& context);
void defineExport(CLI::App& command, Context& context);
void defineImport(CLI::App& command, Context& context);
void defineApply(CLI::App& command, Context& context);
void defineDiff(CLI::App& command, Context& context);
void defineWatch(CLI::App& command, Context& context);
void defineRun(CLI::App& command, Context& context);
void defineCheck(CLI::App& command, Context& context);
void defineEdit(CLI::App& command, Context& context);
void defineBrowse(CLI::App& command, Context& context);
void defineNotify(CLI::App& command, Context& context);
void defineInfo(CLI::App& command, Context& context);
void defineRestore(CLI::App& command, Context& context);
void defineClean(CLI::App& command, Context& context);
void defineComplete(CLI::App& command, Context& context);
void defineHelp(CLI::App& command, Context& context);

}  // namespace vqreg

#endif  // TOOLS_VQREG_COMMANDS_COMMANDTABLE_H
