// Checks that end in each way that a check can end: the test of scripts/torture is after what it makes
// of them.
#include <sys/types.h>
#include <unistd.h>

#include "support/Torture.h"

namespace {

using vqtorture::Run;

void holds(Run& run) {
    run.add("turns", static_cast<double>(run.count()));
    run.highest("largest", static_cast<double>(run.seed() % 1000));
}

void fails(Run& run) {
    run.add("turns");
    throw vqtorture::Violation("seed " + std::to_string(run.seed()) + " does not hold");
}

void cannot(Run&) {
    throw vqtorture::CannotRun("nobody can");
}

[[noreturn]] void sleepForLong() {
    for (;;) {
        ::pause();
    }
}

void hangs(Run&) {
    sleepForLong();
}

// In a session of its own, so that the signal to the check's group does not reach it.
void leaves(Run&) {
    if (::fork() == 0) {
        ::setsid();
        sleepForLong();
    }
}

}  // namespace

int main(int argc, char** argv) {
    return vqtorture::runOneOf({{"holds", holds},
                                {"fails", fails},
                                {"cannot", cannot},
                                {"hangs", hangs},
                                {"leaves", leaves}},
                               argc, argv);
}
