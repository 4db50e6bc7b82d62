// The stops of a child that is stepped through, told apart by what they are.
//
// How many stops an operation has is not the same each time: a look at the named objects once a second, a
// nap more of a thread that waits for another one. So a place is not the how manieth stop it is, which would
// be another call with each run, but a call of a thread: its number, its turn among the thread's calls of
// that number, and which of its two ends.
#ifndef VQTORTURE_STOPS_H
#define VQTORTURE_STOPS_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/SteppedChild.h"
#include "support/Torture.h"

namespace vqtorture {

/// Where a system call of a child begins or ends.
struct Stop {
    unsigned thread = 0;       ///< in the order in which they come to their first stops
    std::uint64_t number = 0;  ///< of the system call
    unsigned turn = 0;         ///< of the thread's calls of this number
    bool isEnd = false;

    auto operator<=>(const Stop&) const = default;
    std::string words() const;

    /// A number of it, by which places are dealt out.
    std::uint64_t lot() const;
};

/// Goes through the stops of a child.
class StopWalk {
public:
    explicit StopWalk(vqtest::SteppedChild& child) : m_child(child) {}

    /// On to the next stop. @return false when the child has ended
    bool step();

    const Stop& at() const { return m_at; }

    /// Whether it is where a file that does not exist yet is about to be made.
    bool isCreation() const;

private:
    struct Thread {
        unsigned order = 0;
        std::uint64_t number = 0;  // of the call that it is in
        std::map<std::uint64_t, unsigned> turns = {};
    };

    vqtest::SteppedChild& m_child;
    std::map<pid_t, Thread> m_threads;
    Stop m_at;
};

/// So many runs with seeds one after the other have all places of all cases of a check.
constexpr std::uint64_t kPartsOfPlaces = 10;

/// The part of all places that a run visits. Whether a place is in it depends on nothing but the place, so
/// that as many runs as there are parts, with seeds one after the other, have every place between them.
class Part {
public:
    constexpr Part(std::uint64_t parts, std::uint64_t number)
        : m_parts(parts), m_number(number % parts) {}

    bool has(const Stop& stop, std::size_t offset) const;

private:
    std::uint64_t m_parts;
    std::uint64_t m_number;
};

/// The places of one case that a run visits: those of its part that it has seen, also on the way to others.
class Places {
public:
    /// @param offset  of the case among others, which have their equal places in other parts
    Places(Part part, std::size_t offset) : m_part(part), m_offset(offset) {}

    void see(const Stop& stop);

    /// Goes on until the place. @return false when the child has ended without having come there
    bool goTo(const Stop& place, StopWalk& walk) {
        return goTo(place, walk, [&walk] { return walk.step(); });
    }
    template <typename Step>
    bool goTo(const Stop& place, StopWalk& walk, Step step) {
        while (step()) {
            see(walk.at());
            if (walk.at() == place) {
                return true;
            }
        }
        return false;
    }

    /// Calls `visit` with each place until it has been there so many times, or has tried often enough:
    /// a call that is made in some runs only may not come again. Adds to the figures "places" and
    /// "places_visited", which does not count one twice.
    void visitEach(Run& run, std::uint64_t times, const std::function<bool(const Stop&)>& visit);

private:
    Part m_part;
    std::size_t m_offset;
    std::set<Stop> m_seen;
    std::vector<Stop> m_places;
};

/// After all places of a part. @throws Violation when more of them were not met again than chance keeps away
void endPart(Run& run);

}  // namespace vqtorture

#endif  // VQTORTURE_STOPS_H
