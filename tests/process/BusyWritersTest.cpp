// Several processes that change a store as fast as they can: each gets its turn.
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <deque>
#include <numeric>
#include <string>
#include <thread>

#include "VQRegLib.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/Wait.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::TempStore;

namespace {

constexpr std::size_t kWriters = 4;
constexpr auto kDuration = std::chrono::seconds(2);

// Begins when all are ready, so that none is alone for a while.
struct Race {
    std::atomic<int> ready;
    std::atomic<bool> isOn;
    std::atomic<bool> isOver;
    std::array<std::atomic<unsigned long>, kWriters> changes;
    std::atomic<unsigned long> alarms;
};

std::string nameOf(std::size_t writer) {
    return "Value" + std::to_string(writer);
}

Common<Race>* theRace = nullptr;  // for the signal handler

// A thousand signals in a second, each of which interrupts the system call that it meets.
void raiseStorm(Common<Race>& race) {
    theRace = &race;
    struct sigaction action {};
    action.sa_handler = [](int) { ++(*theRace)->alarms; };
    ::sigaction(SIGALRM, &action, nullptr);
    itimerval interval{};
    interval.it_interval.tv_usec = 1000;
    interval.it_value.tv_usec = 1000;
    ::setitimer(ITIMER_REAL, &interval, nullptr);
}

class BusyWriters : public testing::Test {
protected:
    int write(std::size_t writer, bool isInStorm) {
        const auto session = vqtest::openSession(store.path());
        const std::string name = nameOf(writer);
        if (isInStorm) {
            raiseStorm(race);
        }
        ++race->ready;
        if (!vqtest::waitUntil([this] { return race->isOn.load(); })) {
            return 1;
        }
        while (!race->isOver) {
            const unsigned long number = race->changes[writer] + 1;
            if (vqtest::setNumber(*session, name.c_str(), number) != REGLIB_OK) {
                return 2;
            }
            race->changes[writer] = number;
        }
        return 0;
    }

    // `inStorm` is the writer that signals are sent to; kWriters: none.
    void compete(std::size_t inStorm) {
        std::deque<ForkedChild> writers;
        const pid_t parent = getpid();
        for (std::size_t i = 0; i < kWriters; ++i) {
            writers.emplace_back([&, i] {
                vqtest::endWithParent(parent);
                return write(i, i == inStorm);
            });
        }
        ASSERT_TRUE(vqtest::waitUntil([this] { return race->ready == int{kWriters}; }));
        race->isOn = true;
        std::this_thread::sleep_for(kDuration);
        race->isOver = true;
        for (ForkedChild& writer : writers) {
            EXPECT_EQ(writer.wait(), 0);
        }
    }

    // Nobody starves. How near the shares come to each other is the scheduler's, on a machine with more
    // to do than this.
    void expectFairShares() {
        constexpr unsigned long kMostBehind = 8;
        const unsigned long all = std::accumulate(race->changes.begin(), race->changes.end(), 0ul);
        EXPECT_GT(all, kWriters * 10) << "next to nothing happened";
        for (std::size_t i = 0; i < kWriters; ++i) {
            EXPECT_GE(race->changes[i] * kWriters * kMostBehind, all)
                << "writer " << i << " of " << race->changes[0] << ", " << race->changes[1] << ", "
                << race->changes[2] << ", " << race->changes[3];
        }
    }

    void expectNothingLost() {
        const auto session = vqtest::openSession(store.path());
        for (std::size_t i = 0; i < kWriters; ++i) {
            EXPECT_EQ(vqtest::numberOf(*session, nameOf(i).c_str()),
                      static_cast<long>(race->changes[i]));
        }
    }

    TempStore store;
    Common<Race> race;
};

}  // namespace

TEST_F(BusyWriters, GetHalfOfTheirShareAtLeast) {
    compete(kWriters);
    expectFairShares();
    expectNothingLost();
}

TEST_F(BusyWriters, GetItAlsoInAStormOfSignals) {
    compete(1);
    EXPECT_GT(race->alarms, 100u);
    expectFairShares();
    expectNothingLost();
}
