// Deaths at the beginning and at the end of every system call, and stops there.
#include <csignal>
#include <optional>

#include "kill/Checks.h"
#include "kill/Ground.h"
#include "support/SteppedChild.h"

namespace vqtorture {

using vqtest::SteppedChild;

namespace {

constexpr unsigned kPatienceSeconds = 30;

void needTracing() {
    if (!SteppedChild::isPermitted()) {
        throw CannotRun("a process may not trace its child here");
    }
}

// Only a registration has threads.
SteppedChild::eThreads threadsOf(Deed deed) {
    return deed == Deed::eRegister ? SteppedChild::eAllThreads : SteppedChild::eFirstThread;
}

struct Place {
    Case what;
    int stop;

    std::string words() const { return what.words() + ", stop " + std::to_string(stop); }
};

int countStops(Run& run, Others& others, const Case& what) {
    Ground ground(run, others, what);
    SteppedChild child([&](auto begin) { return doOnce(ground, begin); }, threadsOf(what.deed));
    int stops = 0;
    while (child.step()) {
        ++stops;
    }
    require(child.status() == 0, "it ended with " + std::to_string(child.status()));
    require(stops > 20, "it was not stepped through");
    return stops;
}

// Every place of each case, or as many as asked for, spread evenly; those of a long run begin again.
class Places {
public:
    Places(Run& run, Others& others, const std::vector<Case>& cases) : m_run(run) {
        for (const Case& what : cases) {
            told(what.words(), [&] {
                const int stops = countStops(run, others, what);
                for (int stop = 1; stop <= stops; ++stop) {
                    m_all.push_back({what, stop});
                }
            });
        }
        run.highest("places", static_cast<double>(m_all.size()));
        m_offset = run.below(m_all.size());
    }

    const Place& operator[](std::uint64_t number) const {
        const std::uint64_t size = m_all.size();
        const std::uint64_t step = m_run.count() < size ? number * size / m_run.count() : number;
        return m_all[(m_offset + step) % size];
    }

private:
    Run& m_run;
    std::vector<Place> m_all;
    std::uint64_t m_offset = 0;
};

void killThere(Run& run, Ground& ground, int stop) {
    SteppedChild child([&](auto begin) { return doOnce(ground, begin); }, threadsOf(ground.deed()));
    run.add("kills", child.step(stop) ? 1 : 0);
    child.kill();
}

// Who opens the store next dies, too. False when it has opened it before.
bool killNext(Ground& ground, int stop) {
    Progress progress;
    SteppedChild child([&](auto begin) {
        Doer& doer = *new Doer(Deed::eOpen, ground.path(), progress);
        doer.prepare();
        begin();
        return doer.once() ? 0 : 1;
    });
    const bool isAlive = child.step(stop);
    child.kill();
    require(isAlive || child.status() == 0, "it cannot open the store");
    return isAlive;
}

}  // namespace

void killAtCalls(Run& run) {
    needTracing();
    Others others;
    const Places places(run, others, allCases());
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        told(places[i].words(), [&] {
            Ground ground(run, others, places[i].what);
            killThere(run, ground, places[i].stop);
            ground.judgeDeath();
        });
    }
}

void killAgain(Run& run) {
    needTracing();
    Others others;
    const Places places(run, others,
                        {{Deed::eSet, Scene::eAlone},
                         {Deed::eUpdate, Scene::eAlone},
                         {Deed::eOpen, Scene::eAlone},
                         {Deed::eOpen, Scene::eNothing}});
    const int stops = countStops(run, others, {Deed::eOpen, Scene::eNothing});
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        const int next = 1 + static_cast<int>(run.below(static_cast<std::uint64_t>(stops)));
        told(places[i].words() + ", then " + std::to_string(next), [&] {
            Ground ground(run, others, places[i].what);
            killThere(run, ground, places[i].stop);
            run.add("kills", killNext(ground, next) ? 1 : 0);
            ground.judgeDeath(2);
        });
    }
}

namespace {

std::vector<Case> casesOfStops() {
    std::vector<Case> cases;
    for (const Case& what : allCases()) {
        // Who is the first to open a store makes what all share, for which others wait.
        if (what.deed != Deed::eOpen || what.scene == Scene::eWitnessed) {
            cases.push_back(what);
        }
    }
    return cases;
}

// At the stop itself, and then by the signal: it comes through where the process next leaves the kernel.
void stopThere(Run& run, Ground& ground, int stop) {
    SteppedChild child([&](auto begin) { return doOnce(ground, begin); }, threadsOf(ground.deed()));
    bool isAlive = child.step(stop);
    const vqtest::SteppedChildGuard guard(child, kPatienceSeconds);
    if (isAlive) {
        run.add("stops");
        ground.judgeStop(true);
    }
    if (isAlive && ground.deed() != Deed::eRegister && child.stopUntraced()) {
        run.add("stops");
        ground.judgeStop(ground.deed() != Deed::eOpen);  // which may take seconds there
        child.goOn();
    }
    child.finish();
    require(!guard.isTooLate(), "somebody waits");
    require(child.status() == 0, "it ended with " + std::to_string(child.status()));
    ground.judgeEnd();
}

}  // namespace

void stopAtCalls(Run& run) {
    needTracing();
    Others others;
    const Places places(run, others, casesOfStops());
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        told(places[i].words(), [&] {
            Ground ground(run, others, places[i].what);
            stopThere(run, ground, places[i].stop);
        });
    }
}

}  // namespace vqtorture
