// The sub-commands. Each registers its own options and runs when it is chosen.
#ifndef TOOLS_VQREG_COMMANDS_COMMANDS_H
#define TOOLS_VQREG_COMMANDS_COMMANDS_H

#include <CLI/CLI.hpp>

#include "tools/vqreg/store/StoreSession.h"

namespace vqreg {

struct Batch;

// What every sub-command needs; filled from the options before the sub-command.
struct Context {
    StoreOptions store;
    enum class eColor { eAuto, eAlways, eNever } color = eColor::eAuto;
    int exitCode = 0;        // a sub-command that ends without an error sets 0 or 1 here
    Batch* batch = nullptr;  // for the lines of a batch
};

// Values and keys one by one.
void addGet(CLI::App& app, Context& context);
void addSet(CLI::App& app, Context& context);
void addIncr(CLI::App& app, Context& context);
void addRm(CLI::App& app, Context& context);
void addMkkey(CLI::App& app, Context& context);
void addLs(CLI::App& app, Context& context);
void addTree(CLI::App& app, Context& context);
void addCp(CLI::App& app, Context& context);
void addMv(CLI::App& app, Context& context);
void addBatch(CLI::App& app, Context& context);

// The store as a whole.
void addNotify(CLI::App& app, Context& context);
void addInfo(CLI::App& app, Context& context);
void addRestore(CLI::App& app, Context& context);
void addClean(CLI::App& app, Context& context);
void addComplete(CLI::App& app, Context& context);  // hidden: names for the shell's completion

void addHelp(CLI::App& app, Context& context);

// Texts of whole trees.
void addExport(CLI::App& app, Context& context);
void addImport(CLI::App& app, Context& context);
void addApply(CLI::App& app, Context& context);
void addDiff(CLI::App& app, Context& context);
void addWatch(CLI::App& app, Context& context);
void addCheck(CLI::App& app, Context& context);
void addEdit(CLI::App& app, Context& context);

}  // namespace vqreg

#endif  // TOOLS_VQREG_COMMANDS_COMMANDS_H
