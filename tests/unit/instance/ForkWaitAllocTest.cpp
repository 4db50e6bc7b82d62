// How long a fork waits for the directory. In an executable of its own, because it replaces
// nanosleep.
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "portable/Mutex.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/Threads.h"
#include "support/WatchedStore.h"

namespace {

thread_local int naps = 0;
thread_local long nanoseconds = 0;  // of all of them
std::atomic<bool> isOver{false};

constexpr int kMostNaps = 200;  // then a fork goes on without the lock

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __real_nanosleep(const timespec*, timespec*);
extern "C" int __wrap_nanosleep(const timespec*, timespec*);
extern "C" int __wrap_nanosleep(const timespec* duration, timespec* left) {
    ++naps;
    nanoseconds += duration->tv_sec * 1'000'000'000 + duration->tv_nsec;
    return __real_nanosleep(duration, left);
}
// NOLINTEND(bugprone-reserved-identifier)

TEST(ForkWait, EndsWhileAnotherThreadKeepsOpeningSessions) {
    vqtest::TempStore file;
    std::atomic<int> opened{0};
    std::thread opening([&] {
        for (int i = 0; !isOver; ++i) {
            // A file of its own each time, so that a mutex is made.
            vqtest::openSession(file.directory() + "/store" + std::to_string(i % 500) + ".cfg");
            ++opened;
        }
    });
    vqtest::waitUntil([&] { return opened > 0; });
    for (int i = 0; i < 10; ++i) {
        naps = 0;
        vqtest::ForkedChild child([&] {
            ::alarm(30);
            const auto session = vqtest::openSession(file.directory() + "/child.cfg");
            return session->RootKey() == nullptr ? 1 : 0;
        });
        EXPECT_LT(naps, kMostNaps) << "fork " << i;
        EXPECT_EQ(child.wait(), 0);
    }
    isOver = true;
    opening.join();
}

// Whoever opens a store may wait for the very lock that the forking thread holds.
TEST(ForkWait, IsOverAfterTwoHundredMilliseconds) {
    if (sizeof(void*) != 8) {
        GTEST_SKIP() << "the library calls other functions here";
    }
    using VQRegLib::CPMutex;
    const vqtest::TempStore file;
    const auto first = vqtest::openSession(file.directory() + "/first.cfg");
    CPMutex lock(1, 0, file.path(), 1, 1);
    ASSERT_EQ(lock.wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    std::unique_ptr<VQRegLib::CRegLib> made;
    const vqtest::CallElsewhere opening([&] { made = vqtest::openSession(file.path()); });
    ASSERT_TRUE(opening.waits());
    naps = 0;
    nanoseconds = 0;
    vqtest::ForkedChild child([] { return 0; });
    EXPECT_EQ(naps, kMostNaps);
    EXPECT_EQ(nanoseconds, 200'000'000);
    EXPECT_EQ(child.wait(), 0);
    lock.release();
}
