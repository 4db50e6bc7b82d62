// The command as a function.
#ifndef TOOLS_VQREG_COMMANDS_COMMAND_H
#define TOOLS_VQREG_COMMANDS_COMMAND_H

namespace vqreg {

// Does what a command line asks for. Throws nothing; returns the exit code.
int runCommand(int argc, char** argv);

}  // namespace vqreg

#endif  // TOOLS_VQREG_COMMANDS_COMMAND_H
