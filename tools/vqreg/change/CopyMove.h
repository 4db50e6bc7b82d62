// Copying and moving values and keys, which differ in what becomes of the old place.
#ifndef TOOLS_VQREG_CHANGE_COPYMOVE_H
#define TOOLS_VQREG_CHANGE_COPYMOVE_H

#include <CLI/CLI.hpp>

#include "tools/vqreg/change/Context.h"

namespace vqreg {

// The options and arguments of either command, and what it does.
void defineCopyMove(CLI::App& command, Context& context, bool move);

}  // namespace vqreg

#endif  // TOOLS_VQREG_CHANGE_COPYMOVE_H
