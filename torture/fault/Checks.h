// The checks of this program.
#ifndef VQTORTURE_FAULT_CHECKS_H
#define VQTORTURE_FAULT_CHECKS_H

#include "support/Torture.h"

namespace vqtorture {

void failFiles(Run& run);        ///< count: rounds, each with another way for each call to fail
void failPairs(Run& run);        ///< count: pairs of calls that fail in one operation
void failInSequences(Run& run);  ///< count: sequences of operations, with faults at random
void dieAtFiles(Run& run);       ///< count: rounds, in turn before and after the call
// The same with VQREG_SYNC=1.
void failSyncedFiles(Run& run);
void failSyncedPairs(Run& run);
void dieAtSyncedFiles(Run& run);

// count: rounds over the system calls.
void failCalls(Run& run);
void failSyncedCalls(Run& run);  ///< with VQREG_SYNC=1
void failTracedCalls(Run& run);  ///< with a log that is written to

/// Before the first store of the process, which looks at it once.
void askForSync();

}  // namespace vqtorture

#endif  // VQTORTURE_FAULT_CHECKS_H
