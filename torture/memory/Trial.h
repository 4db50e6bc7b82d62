// One operation with memory that gives out at one place, and what must hold afterwards.
#ifndef VQTORTURE_MEMORY_TRIAL_H
#define VQTORTURE_MEMORY_TRIAL_H

#include <string>

#include "memory/Allocations.h"
#include "memory/Subject.h"
#include "support/Agent.h"

namespace vqtorture {

struct Trial {
    const Tried& tried;
    long at;
    bool isLasting;
    Whose whose;
    bool isInChild;  ///< in a process that has not used the library before
    bool witnessChanges;

    std::string text() const;

    /// What it came to.
    struct Result {
        long requests = 0;  ///< that were granted
        long refused = 0;
        long liveBlocks = 0;  ///< more than before
        char violation[600] = {};
    };

    /// @throws Violation
    void run(const std::string& below, vqtest::Agent& witness, Result& result) const;

private:
    int runShort(Subject& subject, Result& result) const;
    void runSubject(Ground& ground, Outcome& outcome, Result& result) const;
};

}  // namespace vqtorture

#endif  // VQTORTURE_MEMORY_TRIAL_H
