// The mutex that all processes share, seen by the threads of one process.
#include "portable/Mutex.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "portable/ObjectName.h"
#include "support/TempStore.h"
#include "support/Wait.h"

using VQRegLib::CPMutex;
using VQRegLib::CTerminateWait;
using vqtest::waitUntil;

namespace {

class Mutex : public testing::Test {
protected:
    std::unique_ptr<CPMutex> open() {
        auto mutex = std::make_unique<CPMutex>(1, 0, m_store.path(), 1, 1);
        EXPECT_TRUE(mutex->isOpen()) << mutex->error();
        return mutex;
    }

    // What another thread's wait gives that does not wait; it releases what it got.
    CPMutex::eWaitResult tryElsewhere() {
        CPMutex::eWaitResult result = CPMutex::eFailed;
        std::thread([&] {
            const auto mutex = open();
            result = mutex->wait(0, nullptr);
            if (result == CPMutex::eOwned || result == CPMutex::eOwned) {
                EXPECT_EQ(mutex->release(), 0);
            }
        }).join();
        return result;
    }

    vqtest::TempStore m_store;
};

// A thread that takes the mutex and keeps it until it is told to stop.
class HoldingThread {
public:
    explicit HoldingThread(CPMutex& mutex)
        : m_thread([this, &mutex] {
              m_result = mutex.wait(CPMutex::kInfinite, nullptr);
              m_isHeld = true;
              waitUntil([this] { return m_stop.load(); });
              mutex.release();
          }) {
        waitUntil([this] { return m_isHeld.load(); });
    }
    ~HoldingThread() { stop(); }
    HoldingThread(const HoldingThread&) = delete;
    HoldingThread& operator=(const HoldingThread&) = delete;

    void stop() {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    CPMutex::eWaitResult result() const { return m_result; }

private:
    std::atomic<CPMutex::eWaitResult> m_result{CPMutex::eFailed};
    std::atomic<bool> m_isHeld{false};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace

TEST_F(Mutex, IsTakenAndReleased) {
    const auto mutex = open();
    EXPECT_EQ(mutex->error(), 0);
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(tryElsewhere(), CPMutex::eTimeout);
    EXPECT_EQ(mutex->release(), 0);
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
}

TEST_F(Mutex, ItsHolderTakesItAgainAndReleasesItAsOften) {
    const auto mutex = open();
    for (int depth = 0; depth < 3; ++depth) {
        EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    }
    for (int depth = 3; depth > 0; --depth) {
        EXPECT_EQ(tryElsewhere(), CPMutex::eTimeout) << depth;
        EXPECT_EQ(mutex->release(), 0);
    }
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
    EXPECT_EQ(mutex->release(), EPERM);
}

TEST_F(Mutex, ItsHolderTakesItAgainThroughAnotherObject) {
    const auto first = open();
    const auto second = open();
    EXPECT_EQ(first->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(second->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(first->release(), 0);
    EXPECT_EQ(tryElsewhere(), CPMutex::eTimeout);
    EXPECT_EQ(second->release(), 0);
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
}

TEST_F(Mutex, OnlyItsHolderReleasesIt) {
    const auto mutex = open();
    EXPECT_EQ(mutex->release(), EPERM);
    HoldingThread other(*mutex);
    EXPECT_EQ(mutex->release(), EPERM);
    EXPECT_EQ(mutex->wait(0, nullptr), CPMutex::eTimeout);
    other.stop();
    EXPECT_EQ(mutex->wait(0, nullptr), CPMutex::eOwned);
}

TEST_F(Mutex, ExcludesThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    const auto shared = open();
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            const auto own = open();  // half of the threads share an object
            CPMutex& mutex = i % 2 == 0 ? *shared : *own;
            for (int round = 0; round < kRounds; ++round) {
                mutex.wait(CPMutex::kInfinite, nullptr);
                ++count;
                mutex.release();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, kThreads * kRounds);
}

TEST_F(Mutex, ATimedWaitEnds) {
    const auto mutex = open();
    HoldingThread other(*mutex);
    EXPECT_EQ(other.result(), CPMutex::eOwned);
    for (const unsigned long milliseconds : {0ul, 1ul, 120ul}) {
        EXPECT_EQ(mutex->wait(milliseconds, nullptr), CPMutex::eTimeout) << milliseconds;
    }
    other.stop();
    EXPECT_EQ(mutex->wait(120, nullptr), CPMutex::eOwned);
}

TEST_F(Mutex, ATimedWaitGetsItWhenItIsReleased) {
    const auto mutex = open();
    auto other = std::make_unique<HoldingThread>(*mutex);
    std::atomic<CPMutex::eWaitResult> result{CPMutex::eFailed};
    std::thread waiting([&] {
        result = mutex->wait(1000000, nullptr);
        mutex->release();
    });
    other->stop();
    waiting.join();
    EXPECT_EQ(result.load(), CPMutex::eOwned);
}

TEST_F(Mutex, AnEndlessWaitIsTerminated) {
    const auto mutex = open();
    HoldingThread other(*mutex);
    CTerminateWait terminate;
    EXPECT_FALSE(terminate.isTerminated());
    std::atomic<bool> isWaiting{false};
    CPMutex::eWaitResult result = CPMutex::eFailed;
    std::thread waiting([&] {
        isWaiting = true;
        result = mutex->wait(CPMutex::kInfinite, &terminate);
    });
    waitUntil([&] { return isWaiting.load(); });
    terminate.terminate();
    waiting.join();
    EXPECT_EQ(result, CPMutex::eTerminated);
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, &terminate), CPMutex::eTerminated);
    other.stop();
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
}

TEST_F(Mutex, AWaitThatIsNotTerminatedTakesIt) {
    const auto mutex = open();
    CTerminateWait terminate;
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, &terminate), CPMutex::eOwned);
    EXPECT_EQ(mutex->wait(10, &terminate), CPMutex::eOwned);
    EXPECT_EQ(mutex->release(), 0);
    EXPECT_EQ(tryElsewhere(), CPMutex::eTimeout);
    EXPECT_EQ(mutex->release(), 0);
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
}

TEST_F(Mutex, AThreadThatEndsHoldingItHandsItOnOnce) {
    const auto mutex = open();
    std::thread([&] {
        EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
        EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    }).join();
    EXPECT_EQ(mutex->release(), EPERM);
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(tryElsewhere(), CPMutex::eTimeout);
    EXPECT_EQ(mutex->release(), 0);
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
}

TEST_F(Mutex, ATimedWaitSeesTheEndOfItsHolderToo) {
    const auto mutex = open();
    std::thread([&] { mutex->wait(CPMutex::kInfinite, nullptr); }).join();
    EXPECT_EQ(mutex->wait(0, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex->release(), 0);
    EXPECT_EQ(mutex->wait(0, nullptr), CPMutex::eOwned);
}

TEST_F(Mutex, ThreadsThatFollowADeadHolderAreNotTakenForIt) {
    const auto mutex = open();
    std::thread([&] { mutex->wait(CPMutex::kInfinite, nullptr); }).join();
    for (int i = 0; i < 3; ++i) {  // the system likes to give them the same identity
        CPMutex::eWaitResult result = CPMutex::eFailed;
        std::thread([&] {
            EXPECT_EQ(mutex->release(), EPERM);
            result = mutex->wait(0, nullptr);
        }).join();
        EXPECT_EQ(result, CPMutex::eOwned);
    }
}

TEST_F(Mutex, ItsDestructorReleasesEveryWait) {
    auto mutex = open();
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    mutex.reset();
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
}

TEST_F(Mutex, ItsDestructorLeavesItToAnotherThreadThatHoldsIt) {
    auto mutex = open();
    std::atomic<bool> isHeld{false};
    std::atomic<bool> mayEnd{false};
    std::thread holder([&] {
        isHeld = mutex->wait(0, nullptr) == CPMutex::eOwned;
        waitUntil([&] { return mayEnd.load(); });
    });
    ASSERT_TRUE(waitUntil([&] { return isHeld.load(); }));
    mutex.reset();
    const int file = ::open(VQRegLib::objectPath(VQRegLib::kLockKind, m_store.path()).c_str(),
                            O_RDWR | O_CLOEXEC);
    EXPECT_NE(::flock(file, LOCK_EX | LOCK_NB), 0) << "other processes could take it";
    EXPECT_EQ(tryElsewhere(), CPMutex::eTimeout);
    mayEnd = true;
    holder.join();
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
    ::close(file);
}

TEST_F(Mutex, ItsDestructorKeepsTheWaitsThroughOtherObjects) {
    auto first = open();
    const auto second = open();
    EXPECT_EQ(first->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(second->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    first.reset();
    EXPECT_EQ(tryElsewhere(), CPMutex::eTimeout);
    EXPECT_EQ(second->release(), 0);
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
}

TEST_F(Mutex, TellsItsHolder) {
    const auto mutex = open();
    EXPECT_EQ(mutex->holder().pid, 0);
    const std::int64_t before = std::time(nullptr);
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(open()->holder().pid, getpid());
    EXPECT_EQ(open()->holder().sinceSec, 0) << "nobody has written it down";
    mutex->noteHolding();
    const CPMutex::Holder holder = open()->holder();
    EXPECT_EQ(holder.pid, getpid());
    EXPECT_GE(holder.sinceSec, before - 1);  // of a coarser clock
    EXPECT_LE(holder.sinceSec, std::time(nullptr) + 1);
    EXPECT_EQ(mutex->wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex->release(), 0);
    EXPECT_EQ(mutex->holder().pid, getpid());
    EXPECT_EQ(mutex->release(), 0);
    EXPECT_EQ(mutex->holder().pid, 0);
}

TEST(Mutexes, OfAThreadMayBeLetGoOfInAnyOrder) {
    const vqtest::TempStore store;
    CPMutex first(1, 0, store.path() + "1", 1, 1);
    CPMutex second(1, 0, store.path() + "2", 1, 1);
    CPMutex third(1, 0, store.path() + "3", 1, 1);
    std::thread([&] {
        for (CPMutex* const each : {&first, &second, &third}) {
            EXPECT_EQ(each->wait(0, nullptr), CPMutex::eOwned);
        }
        EXPECT_EQ(first.release(), 0);
        EXPECT_EQ(second.release(), 0);
        EXPECT_EQ(second.wait(0, nullptr), CPMutex::eOwned);
    }).join();
    for (CPMutex* const each : {&first, &second, &third}) {
        EXPECT_EQ(each->wait(0, nullptr), CPMutex::eOwned) << "the end of the thread let go of it";
    }
}

TEST(Mutexes, WhoDoesNotHoldOneWritesNothingIntoIt) {
    const vqtest::TempStore store;
    CPMutex mutex(1, 0, store.path(), 1, 1);
    ASSERT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    EXPECT_FALSE(mutex.isMarked());
    mutex.setMark(true);
    EXPECT_TRUE(mutex.isMarked());
    ASSERT_EQ(mutex.release(), 0);
    mutex.noteHolding();
    mutex.setMark(false);
    EXPECT_FALSE(mutex.putCounter({1, 2}));
    EXPECT_FALSE(mutex.isMarked()) << "it cannot tell";
    EXPECT_EQ(mutex.counter().number, 0u);
    ASSERT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    EXPECT_TRUE(mutex.isMarked());
    EXPECT_EQ(mutex.counter().number, 0u);
    EXPECT_EQ(mutex.holder().sinceSec, 0);
}
