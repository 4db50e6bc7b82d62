// Trials of one operation after the other: each request of it refused once, and with all after it.
#ifndef VQTORTURE_MEMORY_REFUSALS_H
#define VQTORTURE_MEMORY_REFUSALS_H

#include <cstdint>
#include <vector>

#include "memory/Trial.h"
#include "support/Torture.h"

namespace vqtorture {

/// Which requests of an operation are refused, and in which process.
struct Places {
    Whose whose = Whose::eEverybodys;
    bool isInChild = false;
    long step = 1;           ///< each so many'th of them in one turn
    std::uint64_t turn = 0;  ///< `step` turns have all of them
};

/// Refuses requests until the operation makes no more, both ways. @throws Violation
void refuseEachOf(const Tried& tried, const Places& places, vqtest::Agent& witness, Run& run);

/// Refuses one request of it, whichever `run` chooses, again and again in one process, which must not
/// take more and more memory. False when it makes none. @throws Violation
bool refuseAgain(const Tried& tried, Whose whose, bool isLasting, vqtest::Agent& witness, Run& run);

/// For each process that refuses: what its first exception costs, and its first look at the time zone, is
/// none of the library's. What it tries is told when it is ended.
void prepareToRefuse();

/// A sanitizer takes memory in each new thread, and ends the process without.
bool hasSanitizer();

/// As the sanitizer sees it, where there is one. @throws Violation
void requireNoLeak();

}  // namespace vqtorture

#endif  // VQTORTURE_MEMORY_REFUSALS_H
