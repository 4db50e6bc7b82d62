// vqreg mv: moves a value or a key.
#include "tools/vqreg/change/CopyMove.h"
#include "tools/vqreg/commands/CommandTable.h"

namespace vqreg {

void defineMv(CLI::App& command, Context& context) {
    defineCopyMove(command, context, true);
}

}  // namespace vqreg
