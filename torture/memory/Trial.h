// One operation with memory that gives out at one place, and what must hold afterwards.
#ifndef VQTORTURE_MEMORY_TRIAL_H
#define VQTORTURE_MEMORY_TRIAL_H

#include <string>

#include "memory/Allocations.h"
#include "support/Agent.h"
#include "support/Ground.h"
#include "support/Operations.h"

namespace vqtorture {

struct Trial {
    const Operation& operation;
    long at;
    bool isLasting;
    Whose whose;
    bool isInChild;  ///< in a process that has not used the library before
    bool witnessChanges;

    std::string text() const;

    /// What it came to.
    struct Result {
        long refused = 0;
        long liveBlocks = 0;  ///< more than before
        char violation[600] = {};
    };

    /// @throws Violation
    void run(const std::string& below, vqtest::Agent& witness, Result& result) const;

private:
    int act(Scene& scene, bool& hasThrown) const;
    int runShort(Scene& scene, Result& result, bool& hasThrown) const;
    void runInScene(Ground& ground, Outcome& outcome, Result& result) const;
};

}  // namespace vqtorture

#endif  // VQTORTURE_MEMORY_TRIAL_H
