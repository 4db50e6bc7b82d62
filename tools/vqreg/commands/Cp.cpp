// vqreg cp: copies a value or a key.
#include "tools/vqreg/change/CopyMove.h"
#include "tools/vqreg/commands/CommandTable.h"

namespace vqreg {

void defineCp(CLI::App& command, Context& context) {
    defineCopyMove(command, context, false);
}

}  // namespace vqreg
