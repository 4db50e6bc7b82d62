// How long a watcher waits. In an executable of its own, because it replaces the waiting.
#include <gtest/gtest.h>
#include <semaphore.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "RegLib/text/NotificationName.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::Handler;
using vqtest::moveFileTime;
using vqtest::waitUntil;

namespace {

std::atomic<int> timeOutsToGive{0};
std::atomic<int> timedWaits{0};  // begun
std::atomic<std::int64_t> lastLimit{0};
std::atomic<int> interruptionsToGive{0};

std::int64_t milliseconds(const timespec& time) {
    return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
}

bool take(std::atomic<int>& stock) {
    int left = stock;
    while (left > 0 && !stock.compare_exchange_weak(left, left - 1)) {
    }
    return left > 0;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __real_sem_clockwait(sem_t*, clockid_t, const timespec*);
extern "C" int __wrap_sem_clockwait(sem_t*, clockid_t, const timespec*);

// A watcher's waits end when a test says so. The notifier does not wait this way.
extern "C" int __wrap_sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* until) {
    timespec now{};
    clock_gettime(clock, &now);
    lastLimit = milliseconds(*until) - milliseconds(now);
    ++timedWaits;
    for (;;) {
        if (take(timeOutsToGive)) {
            errno = ETIMEDOUT;
            return -1;
        }
        if (take(interruptionsToGive)) {
            errno = EINTR;
            return -1;
        }
        clock_gettime(clock, &now);
        const long slice = now.tv_nsec + 2'000'000;
        const timespec soon{now.tv_sec + slice / 1'000'000'000, slice % 1'000'000'000};
        if (__real_sem_clockwait(semaphore, clock, &soon) == 0) {
            return 0;
        }
    }
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

class WatcherWait : public vqtest::WatchedStore {
protected:
    void SetUp() override {
        if (sizeof(void*) < 8) {
            GTEST_SKIP() << "here the notifier waits this way as well";
        }
        vqtest::WatchedStore::SetUp();
    }

    // The watcher is in its wait, after its first look.
    void watchAndWait(Handler& handler) {
        handler.watch(session);
        ASSERT_TRUE(waitUntil([] { return timedWaits == 1; }));
    }
};

}  // namespace

TEST_F(WatcherWait, LooksEverySixtySeconds) {
    Handler handler;
    watchAndWait(handler);
    EXPECT_LE(lastLimit, 60000);
    EXPECT_GT(lastLimit, 55000);  // measured from now on, and the machine may be slow
    moveFileTime(file.path());
    EXPECT_EQ(handler.begun(), 0);
    timeOutsToGive = 1;
    EXPECT_TRUE(handler.waitCalls(1)) << "no notification was needed";
    timeOutsToGive = 5;
    EXPECT_TRUE(waitUntil([] { return timedWaits == 7; }));
    EXPECT_EQ(handler.calls(), 1) << "there was no change";
    moveFileTime(file.path());
    timeOutsToGive = 1;
    EXPECT_TRUE(handler.waitCalls(2));
}

TEST_F(WatcherWait, AnInterruptionIsNoEnd) {
    Handler handler;
    watchAndWait(handler);
    moveFileTime(file.path());
    interruptionsToGive = 3;
    EXPECT_TRUE(waitUntil([] { return timedWaits == 4; }));
    EXPECT_EQ(handler.begun(), 0);
    announceNothing(1);
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(WatcherWait, EachNotificationIsTaken) {
    Handler handler;
    watchAndWait(handler);
    announceNothing(3);
    sem_t* const semaphore = ::sem_open(("/" + notificationSemaphoreName(::getpid())).c_str(), 0);
    ASSERT_NE(semaphore, SEM_FAILED);
    int count = -1;
    EXPECT_TRUE(waitUntil([&] { return ::sem_getvalue(semaphore, &count) == 0 && count == 0; }));
    ::sem_close(semaphore);
    EXPECT_TRUE(waitUntil([] { return timedWaits >= 2; }));
    EXPECT_EQ(handler.begun(), 0);
}

TEST_F(WatcherWait, SeparateNotificationsWakeOneByOne) {
    Handler handler;
    watchAndWait(handler);
    for (int i = 1; i <= 3; ++i) {
        announceNothing(1);
        EXPECT_TRUE(waitUntil([&] { return timedWaits == 1 + i; }));
    }
    EXPECT_EQ(handler.begun(), 0);
}
