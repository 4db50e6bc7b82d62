// Processes that are killed or stopped in a store, and those that live on.
#include "kill/Checks.h"

int main(int argc, char** argv) {
    using namespace vqtorture;
    return runOneOf({{"random", killAtRandom},
                     {"calls", killAtCalls},
                     {"again", killAgain},
                     {"mending", killInMending},
                     {"stop", stopAtCalls}},
                    argc, argv);
}
