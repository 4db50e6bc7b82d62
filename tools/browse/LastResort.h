// The terminal's state for a process that ends by a fault of its own.
#ifndef TOOLS_BROWSE_LASTRESORT_H
#define TOOLS_BROWSE_LASTRESORT_H

namespace vqreg {

// Keeps how the terminal is, and what gives it back, before anything is done to it; from then on a
// signal of a fault (SIGSEGV, SIGABRT and the like) first restores it. The description of the terminal
// must have been read.
void rememberTerminal();
void forgetTerminal();

}  // namespace vqreg

#endif  // TOOLS_BROWSE_LASTRESORT_H
