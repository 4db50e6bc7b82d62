// What every command needs; filled from the options before the command.
#ifndef TOOLS_VQREG_CHANGE_CONTEXT_H
#define TOOLS_VQREG_CHANGE_CONTEXT_H

#include <string>
#include <vector>

#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/terminal/Output.h"

namespace vqreg {

struct Batch;

struct Context {
    StoreOptions store;
    eColor color = eColor::eAuto;
    int exitCode = 0;                  // a command that ends without an error sets 0 or 1 here
    Batch* batch = nullptr;            // for the lines of a batch
    std::vector<std::string> program;  // for `run`: what stands behind "--"
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_CHANGE_CONTEXT_H
