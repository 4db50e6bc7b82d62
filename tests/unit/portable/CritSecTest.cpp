#include "portable/CritSec.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

#include "RegLib/base/CritSecGuard.h"
#include "support/Wait.h"

using VQRegLib::CCritSecGuard;
using VQRegLib::CPCritSec;

TEST(CritSec, ItsHolderEntersAgain) {
    CPCritSec critSec("", 1);
    for (int depth = 0; depth < 5; ++depth) {
        critSec.enter(__LINE__);
    }
    for (int depth = 0; depth < 5; ++depth) {
        critSec.leave(__LINE__);
    }
    std::thread([&] {
        critSec.enter(__LINE__);
        critSec.leave(__LINE__);
    }).join();
}

TEST(CritSec, ExcludesThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 5000;
    CPCritSec critSec("test", 1);
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                const CCritSecGuard outer(critSec, __LINE__);
                const CCritSecGuard inner(critSec, __LINE__);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, kThreads * kRounds);
}

TEST(CritSec, IsFreeOnlyAfterAsManyLeaves) {
    CPCritSec critSec("", 1);
    critSec.enter(__LINE__);
    critSec.enter(__LINE__);
    int steps = 0;
    int stepsSeen = 0;
    std::atomic<bool> isRunning{false};
    std::thread other([&] {
        isRunning = true;
        critSec.enter(__LINE__);
        stepsSeen = steps;
        critSec.leave(__LINE__);
    });
    vqtest::waitUntil([&] { return isRunning.load(); });
    steps = 1;
    critSec.leave(__LINE__);
    steps = 2;
    critSec.leave(__LINE__);
    other.join();
    EXPECT_EQ(stepsSeen, 2);
}

TEST(CritSec, IsLeftWhenAnExceptionPassesItsGuard) {
    CPCritSec critSec("", 1);
    try {
        const CCritSecGuard guard(critSec, __LINE__);
        throw std::runtime_error("");
    } catch (const std::runtime_error&) {
    }
    std::thread([&] {
        critSec.enter(__LINE__);
        critSec.leave(__LINE__);
    }).join();
}

TEST(CritSec, MayBeDestroyedByTheThreadInside) {
    CPCritSec critSec("", 1);
    critSec.enter(__LINE__);
    critSec.enter(__LINE__);
}
