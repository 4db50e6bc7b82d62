// The terminal's state for a process that is ended by a signal nobody waits for.
#ifndef TOOLS_BROWSE_LASTRESORT_H
#define TOOLS_BROWSE_LASTRESORT_H

namespace vqreg {

// Keeps how the terminal is, and what gives it back, before anything is done to it; from then on a
// signal that ends the process, of a fault of its own or sent by others, first restores it. The description of the terminal
// must have been read.
void rememberTerminal();
void forgetTerminal();

// Where nobody takes what has been written, that is thrown away for what gives the terminal back. May be
// called in the handler of a signal.
void makeRoom();

}  // namespace vqreg

#endif  // TOOLS_BROWSE_LASTRESORT_H
