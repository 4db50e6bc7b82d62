#include "kill/Stepped.h"

#include "support/OldSemaphores.h"

namespace vqtorture {

namespace {

void seeAll(Run& run, Others& others, const Case& what, Places& places) {
    removeOldSemaphores();
    Ground ground(run, others, what);
    SteppedDeed deed(ground);
    int stops = 0;
    while (deed.walk.step()) {
        places.see(deed.walk.at());
        ++stops;
    }
    require(deed.child.status() == 0, "it ended with " + std::to_string(deed.child.status()));
    require(stops > 20, "it was not stepped through");
}

}  // namespace

void needTracing() {
    if (!vqtest::SteppedChild::isPermitted()) {
        throw CannotRun("a process may not trace its child here");
    }
}

bool killThere(Run& run, Ground& ground, const Stop& stop, Places& places) {
    SteppedDeed deed(ground);
    const bool isThere = places.goTo(stop, deed.walk);
    run.add("kills", isThere ? 1 : 0);
    deed.child.kill();
    return isThere;
}

void visitCases(Run& run, Others& others, const std::vector<Case>& cases, const Visit& visit) {
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& what = cases[i];
        Places places(Part(kPartsOfPlaces, run.seed()), i);
        told(what.words(), [&] { seeAll(run, others, what, places); });
        places.visitEach(run, run.count(), [&](const Stop& stop) {
            removeOldSemaphores();
            bool isThere = false;
            told(what.words() + ", " + stop.words(), [&] { isThere = visit(what, stop, places); });
            return isThere;
        });
    }
    endPart(run);
}

}  // namespace vqtorture
