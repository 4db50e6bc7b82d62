// The checks of this folder.
#ifndef VQTORTURE_ENDS_CHECKS_H
#define VQTORTURE_ENDS_CHECKS_H

#include "support/Torture.h"

namespace vqtorture {

void clearHandlersWhileTheyRun(Run& run);
void cancelAtCalls(Run& run);  ///< a tenth of all places, by the seed; count: how often each
void useWhileUnwinding(Run& run);
void forkBesideBusyThreads(Run& run);
void executeFromBusyProcess(Run& run);
void exitWithThreads(Run& run);
void unloadWithThreads(Run& run);

}  // namespace vqtorture

#endif  // VQTORTURE_ENDS_CHECKS_H
