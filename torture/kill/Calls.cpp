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

// The process that opens the store next. It may have opened another store before, so that there is nothing
// left to it but this one.
class NextOpener {
public:
    NextOpener(const Ground& ground, const std::string& other)
        : m_child([&](auto begin) {
              Progress progress;
              Doer& doer = *new Doer(Deed::eOpen, ground.path(), progress);
              doer.prepare();
              if (!other.empty()) {
                  vqtest::openSession(other).release();
              }
              begin();
              return doer.once() ? 0 : 1;
          }) {}

    int countStops() {
        int stops = 0;
        while (m_child.step()) {
            ++stops;
        }
        return stops;
    }

    // False when it has opened the store before.
    bool killAt(int stop) {
        const bool isAlive = m_child.step(stop);
        m_child.kill();
        require(isAlive || m_child.status() == 0, "it cannot open the store");
        return isAlive;
    }

private:
    SteppedChild m_child;
};

int countStopsOfNext(Run& run, Others& others, const std::string& other) {
    const Ground ground(run, others, {Deed::eOpen, Scene::eNothing});
    return NextOpener(ground, other).countStops();
}

int oneOf(Run& run, int count) {
    return 1 + static_cast<int>(run.below(static_cast<std::uint64_t>(count)));
}

}  // namespace

void killAtCalls(Run& run) {
    needTracing();
    Others others;
    const Places places(run, others, allCases(run));
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        told(places[i].words(), [&] {
            Ground ground(run, others, places[i].what);
            killThere(run, ground, places[i].stop);
            ground.judgeDeath();
        });
    }
}

namespace {

constexpr int kStopsOfAReplacement =
    24;  // the last ones of a change: what can be left half done is there

// The second death at any stop of the first store that a process opens, or after a death in a replacement at
// any stop of the mending.
class Again {
public:
    Again(Run& run, Others& others)
        : m_run(run),
          m_others(others),
          m_other(run.directory()),
          m_places(run, others, casesWithoutThreads(run)),
          m_stopsOfFirst(countStopsOfNext(run, others, "")),
          m_stopsOfOther(countStopsOfNext(run, others, m_other.path())) {
        for (const Deed deed : {Deed::eSet, Deed::eUpdate}) {
            const Case what{deed, Scene::eWitnessed};
            m_ends.push_back({what, countStops(run, others, what)});
        }
    }

    void killAnywhere(std::uint64_t number) {
        kill(m_places[number], "", oneOf(m_run, m_stopsOfFirst));
    }

    void killInMending() {
        Place place = m_ends[m_run.below(m_ends.size())];
        place.stop -= oneOf(m_run, kStopsOfAReplacement) - 1;
        kill(place, m_other.path(), oneOf(m_run, m_stopsOfOther));
    }

private:
    static std::vector<Case> casesWithoutThreads(const Run& run) {
        std::vector<Case> cases = allCases(run);
        std::erase_if(cases, [](const Case& what) { return what.deed == Deed::eRegister; });
        return cases;
    }

    void kill(const Place& place, const std::string& other, int next) {
        told(place.words() + ", then " + std::to_string(next), [&] {
            Ground ground(m_run, m_others, place.what);
            killThere(m_run, ground, place.stop);
            m_run.add("kills", NextOpener(ground, other).killAt(next) ? 1 : 0);
            ground.judgeDeath(2);
        });
    }

    Run& m_run;
    Others& m_others;
    const vqtest::TempStore m_other;
    const Places m_places;
    const int m_stopsOfFirst;
    const int m_stopsOfOther;
    std::vector<Place> m_ends;
};

}  // namespace

void killAgain(Run& run) {
    needTracing();
    Others others;
    Again again(run, others);
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        if (i % 2 == 0) {
            again.killAnywhere(i);
        } else {
            again.killInMending();
        }
    }
}

namespace {

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
    const Places places(run, others, casesOfStops(run));
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        told(places[i].words(), [&] {
            Ground ground(run, others, places[i].what);
            stopThere(run, ground, places[i].stop);
        });
    }
}

}  // namespace vqtorture
