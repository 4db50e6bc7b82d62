#include "portable/CritSec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>
#include <vector>

#include "RegLib/base/CritSecGuard.h"
#include "portable/Portable.h"
#include "support/ForkedChild.h"
#include "support/Threads.h"
#include "support/Wait.h"

using VQRegLib::CCritSecGuard;
using VQRegLib::CPCritSec;
using vqtest::ForkedChild;
using vqtest::isAsleep;
using vqtest::isFree;

namespace {

// Enters a critical section on a thread of its own, until the object ends.
class OtherHolder {
public:
    explicit OtherHolder(CPCritSec& critSec)
        : m_thread([this, &critSec] {
              critSec.enter(__LINE__);
              m_isInside = true;
              vqtest::waitUntil([this] { return m_ends.load(); });
              critSec.leave(__LINE__);
          }) {
        vqtest::waitUntil([this] { return m_isInside.load(); });
    }
    ~OtherHolder() {
        m_ends = true;
        m_thread.join();
    }
    OtherHolder(const OtherHolder&) = delete;
    OtherHolder& operator=(const OtherHolder&) = delete;

private:
    std::atomic<bool> m_isInside{false};
    std::atomic<bool> m_ends{false};
    std::thread m_thread;
};

}  // namespace

TEST(CritSec, ItsHolderEntersAgain) {
    CPCritSec critSec("", 1);
    for (int depth = 0; depth < 5; ++depth) {
        critSec.enter(__LINE__);
    }
    for (int depth = 0; depth < 5; ++depth) {
        EXPECT_FALSE(isFree(critSec)) << depth;
        critSec.leave(__LINE__);
    }
    EXPECT_TRUE(isFree(critSec));
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
        EXPECT_FALSE(isFree(critSec));
        throw std::runtime_error("");
    } catch (const std::runtime_error&) {
    }
    EXPECT_TRUE(isFree(critSec));
}

TEST(CritSec, IsTriedWithoutWaiting) {
    CPCritSec critSec("", 1);
    EXPECT_TRUE(critSec.tryEnter(__LINE__));
    EXPECT_TRUE(critSec.tryEnter(__LINE__)) << "its holder enters again";
    EXPECT_FALSE(isFree(critSec));
    critSec.leave(__LINE__);
    EXPECT_FALSE(isFree(critSec));
    critSec.leave(__LINE__);
    EXPECT_TRUE(isFree(critSec));
}

TEST(CritSec, IsEnteredAtOnceOnlyByAKnownThreadThatFindsNobody) {
    CPCritSec critSec("", 1);
    std::thread([&] {
        EXPECT_FALSE(critSec.tryEnterAtOnce(__LINE__)) << "a thread without a number";
        critSec.enter(__LINE__);
        EXPECT_FALSE(critSec.tryEnterAtOnce(__LINE__)) << "not again";
        critSec.leaveEntered(__LINE__);
        EXPECT_TRUE(critSec.tryEnterAtOnce(__LINE__));
        EXPECT_FALSE(isFree(critSec));
        critSec.enter(__LINE__);
        critSec.leaveEntered(__LINE__);
        EXPECT_FALSE(isFree(critSec)) << "entered twice and left once";
        critSec.leaveEntered(__LINE__);
    }).join();
    EXPECT_TRUE(isFree(critSec));
    critSec.enter(__LINE__);
    critSec.leave(__LINE__);
    const OtherHolder holder(critSec);
    EXPECT_FALSE(critSec.tryEnterAtOnce(__LINE__));
}

TEST(CritSec, IsFreeForAllWhenItsHolderLeavesWhatWasForgotten) {
    CPCritSec critSec("", 1);
    critSec.enter(__LINE__);
    critSec.forgetInherited();
    critSec.leaveEntered(__LINE__);
    EXPECT_TRUE(isFree(critSec));
    critSec.enter(__LINE__);
    EXPECT_FALSE(isFree(critSec));
    critSec.enter(__LINE__);
    critSec.leave(__LINE__);
    EXPECT_FALSE(isFree(critSec));
    critSec.leave(__LINE__);
    EXPECT_TRUE(isFree(critSec));
}

TEST(CritSec, OnlyItsHolderLeavesIt) {
    CPCritSec critSec("", 1);
    {
        const OtherHolder holder(critSec);
        critSec.leave(__LINE__);
        EXPECT_FALSE(critSec.tryEnter(__LINE__));
    }
    critSec.leave(__LINE__);
    critSec.enter(__LINE__);
    EXPECT_FALSE(isFree(critSec));
    critSec.leave(__LINE__);
    EXPECT_TRUE(isFree(critSec));
}

// Whoever is inside when the first thread is made entered while the process had only one.
TEST(CritSec, EnteredBeforeThereWereThreadsItKeepsThemOut) {
    ForkedChild child([] {
        CPCritSec critSec("", 1);
        critSec.enter(__LINE__);
        const bool wasFree = isFree(critSec);
        critSec.leave(__LINE__);
        return !wasFree && isFree(critSec) ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
}

TEST(CritSec, AllWhoSleepGetIn) {
    constexpr int kThreads = 8;
    CPCritSec critSec("", 1);
    std::array<std::atomic<long>, kThreads> ids{};
    int entered = 0;
    bool isErrorKept = true;
    critSec.enter(__LINE__);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            ids[static_cast<std::size_t>(i)] = VQRegLib::CPortable::GetCurrentThreadId();
            errno = i;
            critSec.enter(__LINE__);
            isErrorKept = isErrorKept && errno == i;
            ++entered;
            critSec.leave(__LINE__);
        });
    }
    vqtest::waitUntil([&] {
        return std::all_of(ids.begin(), ids.end(), [](long id) { return id != 0 && isAsleep(id); });
    });
    EXPECT_EQ(entered, 0);
    critSec.leave(__LINE__);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(entered, kThreads);
    EXPECT_TRUE(isErrorKept);
}

TEST(CritSec, InAForkedChildWhoForkedIsInsideStill) {
    CPCritSec critSec("", 1);
    critSec.enter(__LINE__);
    ForkedChild child([&] {
        if (!critSec.tryEnter(__LINE__)) {
            return 1;
        }
        critSec.leave(__LINE__);
        if (isFree(critSec)) {
            return 2;
        }
        critSec.leave(__LINE__);
        return isFree(critSec) ? 0 : 3;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_FALSE(isFree(critSec));
    critSec.leave(__LINE__);
}

TEST(CritSec, InAForkedChildAnotherThreadsStaysHeldUntilItIsForgotten) {
    CPCritSec critSec("", 1);
    const OtherHolder holder(critSec);
    ForkedChild child([&] {
        if (critSec.tryEnter(__LINE__)) {
            return 1;
        }
        critSec.forgetInherited();
        if (!critSec.tryEnter(__LINE__)) {
            return 2;
        }
        critSec.leave(__LINE__);
        return critSec.tryEnter(__LINE__) ? 0 : 3;
    });
    EXPECT_EQ(child.wait(), 0);
}
