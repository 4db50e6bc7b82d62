// A death, and another one in the start that follows.
#include <algorithm>

#include "kill/Stepped.h"

namespace vqtorture {

using vqtest::SteppedChild;

namespace {

// So many runs with seeds one after the other have all pairs of places in a replacement and its mending.
constexpr std::uint64_t kPartsOfPairs = 60;
constexpr int kTries = 10;

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
          }),
          m_walk(m_child) {}

    StopWalk& walk() { return m_walk; }

    // Over so many stops. False when it has opened the store before.
    bool goOver(std::uint64_t stops) {
        while (stops > 0 && m_walk.step()) {
            --stops;
        }
        return stops == 0;
    }

    // It stands where it is to die, unless it has opened the store.
    bool kill(bool isAlive) {
        m_child.kill();
        require(isAlive || m_child.status() == 0, "it cannot open the store");
        return isAlive;
    }

private:
    SteppedChild m_child;
    StopWalk m_walk;
};

std::uint64_t countStopsOfNext(Run& run, Others& others) {
    const Ground ground(run, others, {Deed::eOpen, Scene::eNothing});
    NextOpener opener(ground, "");
    std::uint64_t stops = 0;
    while (opener.walk().step()) {
        ++stops;
    }
    return stops;
}

std::vector<Case> casesWithoutThreads(const Run& run) {
    std::vector<Case> cases = allCases(run);
    std::erase_if(cases, [](const Case& what) { return what.deed == Deed::eRegister; });
    return cases;
}

}  // namespace

// The first death is at every place, each time with the next stop of the opening.
void killAgain(Run& run) {
    needTracing();
    Others others;
    const std::uint64_t stops = countStopsOfNext(run, others);
    std::uint64_t next = run.below(stops);
    visitCases(run, others, casesWithoutThreads(run),
               [&](const Case& what, const Stop& stop, Places& places) {
                   Ground ground(run, others, what);
                   const bool isThere = killThere(run, ground, stop, places);
                   next = next % stops + 1;
                   told("then at stop " + std::to_string(next), [&] {
                       NextOpener opener(ground, "");
                       run.add("kills", opener.kill(opener.goOver(next)) ? 1 : 0);
                       ground.judgeDeath(2);
                   });
                   return isThere;
               });
}

namespace {

// Every pair of places: the first death in the replacement of the file, where alone something can be left
// half done, and the second one in the mending of that.
class Mending {
public:
    Mending(Run& run, Others& others) : m_run(run), m_others(others), m_other(run.directory()) {}

    void killIn(const Case& what) {
        const std::vector<Stop> stops = stopsOfReplacement(what);
        std::size_t met = 0;
        for (const Stop& first : stops) {
            told(what.words() + ", " + first.words(),
                 [&] { met += killAfter(what, first) ? 1 : 0; });
        }
        // Some are made once a second only.
        require(stops.size() - met <= stops.size() / 10, "it goes another way each time");
    }

private:
    // From the creation of the new file on.
    std::vector<Stop> stopsOfReplacement(const Case& what) {
        Ground ground(m_run, m_others, what);
        SteppedDeed deed(ground);
        std::vector<Stop> stops;
        bool isBegun = false;
        while (deed.walk.step()) {
            if (isBegun) {
                stops.push_back(deed.walk.at());
            }
            isBegun = isBegun || deed.walk.isCreation();
        }
        require(!stops.empty(), "it makes no new file");
        return stops;
    }

    // False when it has not come to the first place.
    bool dieAt(const Case& what, const Stop& first, const std::function<void(Ground&)>& next) {
        Ground ground(m_run, m_others, what);
        Places none(Part(1, 0), 0);
        const bool isThere = killThere(m_run, ground, first, none);
        if (isThere) {
            next(ground);
        }
        ground.judgeDeath(2);
        return isThere;
    }

    bool seeAll(const Case& what, const Stop& first, Places& places) {
        return dieAt(what, first, [&](Ground& ground) {
            NextOpener opener(ground, m_other.path());
            while (opener.walk().step()) {
                places.see(opener.walk().at());
            }
            opener.kill(false);
        });
    }

    bool killAfter(const Case& what, const Stop& first) {
        Places places(Part(kPartsOfPairs, m_run.seed()), first.lot());
        bool isMet = false;
        for (int tries = 0; tries < kTries && !isMet; ++tries) {
            isMet = seeAll(what, first, places);
        }
        places.visitEach(m_run, m_run.count(), [&](const Stop& second) {
            bool isThere = false;
            told("then at " + second.words(), [&] {
                dieAt(what, first, [&](Ground& ground) {
                    NextOpener opener(ground, m_other.path());
                    isThere = opener.kill(places.goTo(second, opener.walk()));
                    m_run.add("kills", isThere ? 1 : 0);
                });
            });
            return isThere;
        });
        return isMet;
    }

    Run& m_run;
    Others& m_others;
    const vqtest::TempStore m_other;
};

}  // namespace

void killInMending(Run& run) {
    needTracing();
    Others others;
    Mending mending(run, others);
    for (const Deed deed : {Deed::eSet, Deed::eUpdate}) {
        mending.killIn({deed, Scene::eWitnessed});
    }
    endPart(run);
}

}  // namespace vqtorture
