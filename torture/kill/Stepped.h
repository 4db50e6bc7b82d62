// Children that do a deed of a case, step by step.
#ifndef VQTORTURE_KILL_STEPPED_H
#define VQTORTURE_KILL_STEPPED_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "kill/Checks.h"
#include "kill/Ground.h"
#include "support/SteppedChild.h"
#include "support/Stops.h"

namespace vqtorture {

void needTracing();

/// Only a registration has threads.
inline vqtest::SteppedChild::eThreads threadsOf(Deed deed) {
    return deed == Deed::eRegister ? vqtest::SteppedChild::eAllThreads
                                   : vqtest::SteppedChild::eFirstThread;
}

/// A process that does the deed of the ground once.
struct SteppedDeed {
    explicit SteppedDeed(Ground& ground)
        : child([&ground](auto begin) { return doOnce(ground, begin); }, threadsOf(ground.deed())),
          walk(child) {}

    vqtest::SteppedChild child;
    StopWalk walk;
};

/// Lets a process die there. @return whether it has come there
bool killThere(Run& run, Ground& ground, const Stop& stop, Places& places);

/// Calls `visit` with each place of each case that is in this run's part, as often as the run's count says.
using Visit = std::function<bool(const Case& what, const Stop& stop, Places& places)>;
void visitCases(Run& run, Others& others, const std::vector<Case>& cases, const Visit& visit);

}  // namespace vqtorture

#endif  // VQTORTURE_KILL_STEPPED_H
