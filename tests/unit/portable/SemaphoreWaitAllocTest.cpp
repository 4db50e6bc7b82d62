// Until when a wait with a limit lasts. In an executable of its own, because it replaces the clock and the
// wait itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <time.h>

#include <cerrno>
#include <cstddef>
#include <utility>
#include <vector>

#include "portable/SemaphoreWait.h"
#include "portable/TerminateWait.h"

using testing::ElementsAre;
using testing::Pair;
using VQRegLib::CTerminateWait;
using VQRegLib::waitSemaphore;

namespace {

using Time = std::pair<long, long>;  // seconds, nanoseconds

constexpr std::size_t kMostWaits = 10;

Time g_now;
std::vector<Time> g_limits;  // of the waits so far
CTerminateWait* g_ended = nullptr;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time);
extern "C" int __wrap_sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* until);
extern "C" int __wrap_clock_gettime(clockid_t /*clock*/, timespec* time) {
    *time = {static_cast<time_t>(g_now.first), g_now.second};
    return 0;
}

// It lasts as long as it may, and nobody posts; but there is an end to waits that are none.
extern "C" int __wrap_sem_clockwait(sem_t* /*semaphore*/, clockid_t clock, const timespec* until) {
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    g_now = {static_cast<long>(until->tv_sec), static_cast<long>(until->tv_nsec)};
    g_limits.push_back(g_now);
    if (g_ended) {
        g_ended->terminate();
    }
    if (g_limits.size() > kMostWaits) {
        return 0;
    }
    errno = ETIMEDOUT;
    return -1;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

class SemaphoreWait : public testing::Test {
protected:
    void SetUp() override {
        if (sizeof(void*) != 8) {
            GTEST_SKIP() << "the library calls other functions here";
        }
        g_limits.clear();
        g_ended = nullptr;
    }

    sem_t semaphore{};
};

}  // namespace

TEST_F(SemaphoreWait, LastsUntilTheTimeThatItWasGiven) {
    g_now = {7, 120'000'000};
    EXPECT_FALSE(waitSemaphore(&semaphore, 40, nullptr));
    EXPECT_THAT(g_limits, ElementsAre(Pair(7, 160'000'000)));
}

TEST_F(SemaphoreWait, LastsIntoTheNextSecond) {
    g_now = {7, 999'999'999};
    EXPECT_FALSE(waitSemaphore(&semaphore, 1040, nullptr));
    EXPECT_THAT(g_limits, ElementsAre(Pair(9, 39'000'000)));
}

TEST_F(SemaphoreWait, LastsIntoTheLaterHalfOfASecond) {
    g_now = {7, 500'000'000};
    EXPECT_FALSE(waitSemaphore(&semaphore, 400, nullptr));
    EXPECT_THAT(g_limits, ElementsAre(Pair(7, 900'000'000)));
}

TEST_F(SemaphoreWait, ThatCanBeEndedLooksTwentyTimesASecond) {
    const CTerminateWait terminate;
    g_now = {7, 900'000'000};
    EXPECT_FALSE(waitSemaphore(&semaphore, 120, &terminate));
    EXPECT_THAT(g_limits, ElementsAre(Pair(7, 950'000'000), Pair(8, 0), Pair(8, 20'000'000)));
}

TEST_F(SemaphoreWait, WithoutALimitEndsWhenItIsEnded) {
    CTerminateWait terminate;
    g_now = {7, 0};
    g_ended = &terminate;
    EXPECT_FALSE(waitSemaphore(&semaphore, 0xFFFFFFFF, &terminate));
    EXPECT_THAT(g_limits, ElementsAre(Pair(7, 50'000'000)));
}
