// The mutex between processes.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "portable/Mutex.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/Threads.h"
#include "support/Wait.h"

using VQRegLib::CPMutex;
using vqtest::CallElsewhere;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::waitUntil;

namespace {

struct Flags {
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isWaiting{false};
    std::atomic<bool> go{false};
    std::atomic<int> ready{0};
    int count = 0;  // guarded by the mutex of the test
};

class MutexOfProcesses : public testing::Test {
protected:
    CPMutex& mutex() {
        if (!m_mutex) {
            m_mutex = std::make_unique<CPMutex>(1, 0, m_store.path(), 1, 1);
            EXPECT_TRUE(m_mutex->isOpen()) << m_mutex->error();
        }
        return *m_mutex;
    }

    // What a wait in another process gives that does not wait.
    int tryInChild() {
        return ForkedChild([this] { return static_cast<int>(mutex().wait(0, nullptr)); }).wait();
    }

    // A child that takes the mutex so many times and keeps it until it is killed.
    std::unique_ptr<ForkedChild> holdingChild(int times = 1) {
        m_flags->isHeld = false;
        auto child = std::make_unique<ForkedChild>([this, times] {
            for (int i = 0; i < times; ++i) {
                mutex().wait(CPMutex::kInfinite, nullptr);
            }
            m_flags->isHeld = true;
            return waitUntil([this] { return m_flags->go.load(); }) ? 0 : 1;
        });
        EXPECT_TRUE(waitUntil([this] { return m_flags->isHeld.load(); }));
        return child;
    }

    vqtest::TempStore m_store;
    Common<Flags> m_flags;
    std::unique_ptr<CPMutex> m_mutex;
};

}  // namespace

TEST_F(MutexOfProcesses, ExcludesProcesses) {
    constexpr int kChildren = 3;
    constexpr int kRounds = 2000;
    std::vector<std::unique_ptr<ForkedChild>> children;
    for (int i = 0; i < kChildren; ++i) {
        children.push_back(std::make_unique<ForkedChild>([this] {
            ++m_flags->ready;
            waitUntil([this] { return m_flags->ready.load() == kChildren; });
            for (int round = 0; round < kRounds; ++round) {
                mutex().wait(CPMutex::kInfinite, nullptr);
                ++m_flags->count;
                mutex().release();
            }
            return 0;
        }));
    }
    for (const auto& child : children) {
        EXPECT_EQ(child->wait(), 0);
    }
    EXPECT_EQ(m_flags->count, kChildren * kRounds);
}

TEST_F(MutexOfProcesses, IsHandedOnOnceWhenItsHolderIsKilled) {
    const auto child = holdingChild(2);
    EXPECT_EQ(mutex().wait(0, nullptr), CPMutex::eTimeout);
    EXPECT_EQ(child->kill(), -SIGKILL);
    EXPECT_EQ(mutex().wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex().holder().pid, getpid());
    EXPECT_EQ(tryInChild(), CPMutex::eTimeout);
    EXPECT_EQ(mutex().release(), 0);
    EXPECT_EQ(mutex().wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex().release(), 0);
}

TEST_F(MutexOfProcesses, IsHandedOnToAWaitThatHasBegun) {
    const auto child = holdingChild();
    std::atomic<bool> isWaiting{false};
    CPMutex::eWaitResult result = CPMutex::eFailed;
    std::thread waiting([&] {
        isWaiting = true;
        result = mutex().wait(CPMutex::kInfinite, nullptr);
        mutex().release();
    });
    waitUntil([&] { return isWaiting.load(); });
    child->kill();
    waiting.join();
    EXPECT_EQ(result, CPMutex::eOwned);
    EXPECT_EQ(mutex().wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
}

TEST_F(MutexOfProcesses, IsHandedOnWhenItsHolderExits) {
    const auto child = holdingChild();
    m_flags->go = true;
    EXPECT_EQ(child->wait(), 0);
    EXPECT_EQ(mutex().wait(0, nullptr), CPMutex::eOwned);
}

TEST_F(MutexOfProcesses, TheEndOfAProcessThatHoldsNothingChangesNothing) {
    EXPECT_EQ(tryInChild(), CPMutex::eOwned);
    // That one died holding it; a child that releases before its end does not.
    EXPECT_EQ(mutex().wait(0, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex().release(), 0);
    EXPECT_EQ(ForkedChild([this] {
                  mutex().wait(CPMutex::kInfinite, nullptr);
                  return mutex().release();
              }).wait(),
              0);
    EXPECT_EQ(mutex().wait(0, nullptr), CPMutex::eOwned);
}

TEST_F(MutexOfProcesses, TheChildOfAForkDoesNotHoldIt) {
    EXPECT_EQ(mutex().wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(ForkedChild([this] { return mutex().release(); }).wait(), EPERM);
    EXPECT_EQ(tryInChild(), CPMutex::eTimeout);
    EXPECT_EQ(ForkedChild([this] {
                  m_mutex.reset();  // must not release what the parent holds
                  return 0;
              }).wait(),
              0);
    EXPECT_EQ(tryInChild(), CPMutex::eTimeout);
    EXPECT_EQ(mutex().holder().pid, getpid());
    EXPECT_EQ(mutex().release(), 0);
    EXPECT_EQ(tryInChild(), CPMutex::eOwned);
}

TEST_F(MutexOfProcesses, TheChildOfAForkTakesItWhenTheParentReleases) {
    EXPECT_EQ(mutex().wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    ForkedChild child([this] {
        m_flags->isWaiting = true;
        const int result = mutex().wait(CPMutex::kInfinite, nullptr);
        const bool isHolder = mutex().holder().pid == getpid();
        mutex().release();
        return result == CPMutex::eOwned && isHolder ? 0 : 1;
    });
    waitUntil([this] { return m_flags->isWaiting.load(); });
    EXPECT_EQ(mutex().release(), 0);
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(mutex().wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
}

TEST_F(MutexOfProcesses, TellsTheHolderInAnotherProcess) {
    const auto child = holdingChild();
    EXPECT_EQ(mutex().holder().pid, child->pid());
}

TEST_F(MutexOfProcesses, ManyThatMakeItAtOnceGetOneObject) {
    constexpr int kChildren = 8;
    constexpr int kRounds = 200;
    for (int attempt = 0; attempt < 5; ++attempt) {
        const std::string path = m_store.path() + std::to_string(attempt);
        m_flags->ready = 0;
        m_flags->count = 0;
        std::vector<std::unique_ptr<ForkedChild>> children;
        for (int i = 0; i < kChildren; ++i) {
            children.push_back(std::make_unique<ForkedChild>([&] {
                ++m_flags->ready;
                while (m_flags->ready.load() < kChildren) {
                    std::this_thread::yield();
                }
                CPMutex own(1, 0, path, 1, 1);
                for (int round = 0; own.isOpen() && round < kRounds; ++round) {
                    own.wait(CPMutex::kInfinite, nullptr);
                    ++m_flags->count;
                    own.release();
                }
                return own.error();
            }));
        }
        for (const auto& child : children) {
            EXPECT_EQ(child->wait(), 0);
        }
        EXPECT_EQ(m_flags->count, kChildren * kRounds);
        EXPECT_EQ(m_store.sharedObjects().size(), static_cast<std::size_t>(attempt + 1));
    }
}

// What is done in the next fork. Handlers that are called before it begins are called in the opposite order
// of their registration, so this one comes after those of the library, which it has when it is used first.
static std::function<void()>* g_inTheFork = nullptr;
static const int g_isRegistered = pthread_atfork(
    [] {
        if (g_inTheFork) {
            (*g_inTheFork)();
        }
    },
    nullptr, nullptr);

TEST(MutexForks, NoMutexIsMadeOrClosedMeanwhile) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer knows no forks beside threads";
#endif
    ASSERT_EQ(g_isRegistered, 0);
    const vqtest::TempStore store;
    CPMutex::registerForkHandlers();
    std::unique_ptr<CPMutex> made;
    auto closed = std::make_unique<CPMutex>(1, 0, store.path() + "closed", 1, 1);
    std::optional<CallElsewhere> making;
    std::optional<CallElsewhere> closing;
    bool haveWaited = false;
    std::function<void()> look = [&] {
        making.emplace([&] { made = std::make_unique<CPMutex>(1, 0, store.path(), 1, 1); });
        closing.emplace([&] { closed.reset(); });
        haveWaited = making->waits() && closing->waits();
    };
    g_inTheFork = &look;
    ForkedChild child([] { return 0; });
    g_inTheFork = nullptr;
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(haveWaited);
    EXPECT_TRUE(making->returns());
    EXPECT_TRUE(closing->returns());
}

// A fork waits for the making of mutexes to end, and lets it go on afterwards in both processes.
TEST(MutexForks, BesideThreadsThatMakeMutexesLeaveAllOfThemUsable) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer knows no forks beside threads";
#endif
    const vqtest::TempStore store;
    CPMutex::registerForkHandlers();  // a fork does not wait for what makes them
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; !isOver.load(); ++i) {
                const std::string name = std::to_string(thread) + "-" + std::to_string(i % 500);
                CPMutex mutex(1, 0, store.path() + name, 1, 1);
                EXPECT_EQ(mutex.wait(1000, nullptr), CPMutex::eOwned);
            }
        });
    }
    for (int fork = 0; fork < 20; ++fork) {
        ForkedChild child([&] {
            ::alarm(30);
            CPMutex mutex(1, 0, store.path() + "child" + std::to_string(fork), 1, 1);
            return mutex.wait(1000, nullptr);
        });
        ASSERT_EQ(child.wait(), CPMutex::eOwned) << "fork " << fork;
    }
    isOver.store(true);
    for (std::thread& thread : threads) {
        thread.join();
    }
}
