// What comes first in a process of the command.
#ifndef TOOLS_VQREG_BASE_STARTUP_H
#define TOOLS_VQREG_BASE_STARTUP_H

namespace vqreg {

// Open standard streams, the user's characters, and no end by a closed pipe or a full file.
void prepareProcess();

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_STARTUP_H
