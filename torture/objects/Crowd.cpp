// Many processes that start at once where there is neither a file nor an object: all of them must come
// to one lock and one block, and none may lose a change.
#include <unistd.h>

#include <array>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>

#include "objects/Objects.h"
#include "support/Children.h"
#include "support/Ledger.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

constexpr std::size_t kCrowd = 64;
constexpr int kChanges = 2;

// Holds back all who wait until it is opened, or the process that made it has died.
class Gate {
public:
    Gate() { require(::pipe(m_ends.data()) == 0, "no pipe"); }
    ~Gate() {
        open();
        ::close(m_ends[0]);
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void open() {
        if (m_ends[1] >= 0) {
            ::close(m_ends[1]);
            m_ends[1] = -1;
        }
    }
    void wait() {
        char byte = 0;
        (void)!::read(m_ends[0], &byte, 1);
    }

private:
    std::array<int, 2> m_ends{-1, -1};
};

struct Round {
    Ledger ledger;
    std::array<Shared, kCrowd> shared;
};

std::string ownName(std::size_t one) {
    return "Own" + std::to_string(one);
}

// One of them. It stays until all have done their part, so that all of them are alive together.
int takePart(Round& round, const std::string& path, std::size_t own, Gate& begin, Gate& end) {
    begin.open();  // this process's copy
    end.open();
    begin.wait();
    const Stopwatch watch;
    const auto session = vqtest::openSession(path);
    round.ledger.noteWait(watch);
    if (!session->RootKey()) {
        round.ledger.noteFault("a store could not be opened", static_cast<long>(own), 0);
        return 0;
    }
    for (int i = 0; i < kChanges; ++i) {
        countUp(*session, round.ledger);
        readNewest(*session, round.ledger);
    }
    if (vqtest::setNumber(*session, ownName(own).c_str(), own) < 0) {
        round.ledger.noteFault("a change was refused", static_cast<long>(own), 0);
    }
    round.shared[own] = sharedObjects(path);
    ++round.ledger.ready;
    end.wait();
    for (std::size_t one = 0; one < kCrowd; ++one) {
        if (vqtest::numberOf(*session, ownName(one).c_str()) != static_cast<long>(one)) {
            round.ledger.noteFault("a value is missing", static_cast<long>(own),
                                   static_cast<long>(one));
        }
    }
    return 0;
}

void requireOneOfEach(const Round& round) {
    for (const Shared& one : round.shared) {
        require(one.isWhole(), "a process has no lock or no block");
        require(one == round.shared.front(), "two processes have another lock or block");
    }
}

void playRound(Run& run) {
    removeDefaultStore();
    const std::string path = newPlace(run);
    Common<Round> round;
    Gate begin;
    Gate end;
    std::deque<std::unique_ptr<ForkedChild>> crowd;
    for (std::size_t own = 0; own < kCrowd; ++own) {
        crowd.push_back(spawn([&, own] { return takePart(*round, path, own, begin, end); }));
    }
    begin.open();
    const bool isReady = vqtest::waitUntil(
        [&] { return round->ledger.ready == kCrowd || round->ledger.faults != 0; },
        std::chrono::seconds(50));
    require(round->ledger.faults == 0, round->ledger.fault.data());
    require(isReady, "some are not ready after 50 s");
    requireOneOfEach(*round);
    end.open();
    for (const auto& one : crowd) {
        requireEnd(*one, "one of the crowd");
    }
    require(round->ledger.refused == 0, "a change was refused");
    requireAllCounted(round->ledger, path, true);
    require(round->ledger.acknowledged == kCrowd * kChanges, "changes are missing");
    run.add("rounds");
    run.add("changes", kCrowd * (kChanges + 1));
    run.highest("longest_wait_ms", round->ledger.longestMilliseconds);
    removePlace(path);
}

}  // namespace

void crowd(Run& run) {
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        playRound(run);
    }
}

}  // namespace vqtorture
