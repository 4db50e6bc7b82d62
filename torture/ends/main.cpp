// Threads and processes that come to their ends in the middle of things.
#include "ends/Checks.h"

int main(int argc, char** argv) {
    using namespace vqtorture;
    return runOneOf({{"handlers", clearHandlersWhileTheyRun},
                     {"cancel", cancelAtCalls},
                     {"unwinding", useWhileUnwinding},
                     {"fork", forkBesideBusyThreads},
                     {"exec", executeFromBusyProcess},
                     {"exit", exitWithThreads},
                     {"unload", unloadWithThreads}},
                    argc, argv);
}
