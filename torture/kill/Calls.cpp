// Deaths at the beginning and at the end of every system call, and stops there.
#include "kill/Stepped.h"

namespace vqtorture {

namespace {

constexpr unsigned kPatienceSeconds = 30;

std::vector<Case> casesOfStops(const Run& run) {
    std::vector<Case> cases;
    for (const Case& what : allCases(run)) {
        // Who is the first to open a store makes what all share, for which others wait.
        if (what.deed != Deed::eOpen || what.scene == Scene::eWitnessed) {
            cases.push_back(what);
        }
    }
    return cases;
}

// At the stop itself, and then by the signal: it comes through where the process next leaves the kernel.
bool stopThere(Run& run, Ground& ground, const Stop& stop, Places& places) {
    SteppedDeed deed(ground);
    vqtest::SteppedChild& child = deed.child;
    const bool isThere = places.goTo(stop, deed.walk);
    const vqtest::SteppedChildGuard guard(child, kPatienceSeconds);
    if (isThere) {
        run.add("stops");
        ground.judgeStop(true);
    }
    if (isThere && ground.deed() != Deed::eRegister && child.stopUntraced()) {
        run.add("stops");
        ground.judgeStop(ground.deed() != Deed::eOpen);  // which may take seconds there
        child.goOn();
    }
    child.finish();
    require(!guard.isTooLate(), "somebody waits");
    require(child.status() == 0, "it ended with " + std::to_string(child.status()));
    ground.judgeEnd();
    return isThere;
}

}  // namespace

void killAtCalls(Run& run) {
    needTracing();
    Others others;
    visitCases(run, others, allCases(run), [&](const Case& what, const Stop& stop, Places& places) {
        Ground ground(run, others, what);
        const bool isThere = killThere(run, ground, stop, places);
        ground.judgeDeath();
        return isThere;
    });
}

void stopAtCalls(Run& run) {
    needTracing();
    Others others;
    visitCases(run, others, casesOfStops(run),
               [&](const Case& what, const Stop& stop, Places& places) {
                   Ground ground(run, others, what);
                   return stopThere(run, ground, stop, places);
               });
}

}  // namespace vqtorture
