// Signals that this process ignores and the programs that it starts do not.
#ifndef TOOLS_VQREG_BASE_OUTPUTSIGNALS_H
#define TOOLS_VQREG_BASE_OUTPUTSIGNALS_H

namespace vqreg {

// A pipe that nobody reads and a limit of file sizes shall be failures of write from here on.
void ignoreOutputSignals();

// Back to what they were, for a program that takes this one's place. May be called after fork.
void giveBackOutputSignals();

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_OUTPUTSIGNALS_H
