// Whether standard input and output are a terminal that can show a screen.
#ifndef TOOLS_BROWSE_TERMINALTYPE_H
#define TOOLS_BROWSE_TERMINALTYPE_H

#include <string>

namespace vqreg {

// Throws CommandError where they are none, or one that cannot move its cursor. Reads the description of
// the terminal, and writes nothing to it.
void checkTerminal();

// What the description has under a name that is not one of the old ones; empty for nothing.
std::string capability(const char* name);

// Gives back what is known of the terminal since then. A screen asks for it by itself.
void forgetTerminalType();

}  // namespace vqreg

#endif  // TOOLS_BROWSE_TERMINALTYPE_H
