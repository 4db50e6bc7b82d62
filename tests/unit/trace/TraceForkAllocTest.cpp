// Forks while lines are written. In an executable of its own, because it replaces localtime_r.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "RegLib/trace/Trace.h"
#include "support/ForkedChild.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

using testing::ElementsAre;
using testing::UnorderedElementsAre;
using VQRegLib::g_pregLibTrace;
using vqtest::ForkedChild;
using vqtest::TraceLog;
using vqtest::waitUntil;

namespace {

constexpr auto kMoment = std::chrono::milliseconds(50);

thread_local bool isHeldHere = false;
std::atomic<bool> isInside{false};
std::atomic<bool> mayLeave{false};

// What a program may do around its forks: it waits for a thread that is inside the library.
std::atomic<bool> isFinished{true};
std::atomic<bool> isForking{false};

// What it may do there besides, or in the middle of a line as a signal handler.
std::atomic<bool> g_writesAtFork{false};
void (*g_inLine)() = nullptr;

// The naps of the thread that forks, from before the library's handler to after it.
thread_local bool t_countsNaps = false;
std::atomic<int> g_naps{0};

void beginToCountNaps() {
    t_countsNaps = true;
}

void waitForTheOtherThread() {
    isForking = true;
    if (g_writesAtFork.exchange(false)) {
        g_pregLibTrace.load()->trace("handler\n");
    }
    t_countsNaps = false;
    waitUntil([] { return isFinished.load(); });
}

class TraceFork : public testing::Test {
protected:
    TraceFork() {
        pthread_atfork(waitForTheOtherThread, nullptr, nullptr);  // before those of the library
        CRegLibTrace::createInstance();
        pthread_atfork(beginToCountNaps, nullptr, nullptr);  // after them, and so called first
        trace().trace("first\n");
    }

    static CRegLibTrace& trace() { return *g_pregLibTrace.load(); }

    static int forkAndTrace() {
        ForkedChild child([] {
            ::alarm(30);
            trace().trace("child\n");
            return 0;
        });
        return child.wait();
    }

    TraceLog m_log{1};
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" tm* __real_localtime_r(const time_t*, tm*);
extern "C" tm* __wrap_localtime_r(const time_t*, tm*);
extern "C" int __real_nanosleep(const timespec*, timespec*);
extern "C" int __wrap_nanosleep(const timespec*, timespec*);
extern "C" tm* __wrap_localtime_r(const time_t* time, tm* out) {
    if (g_inLine) {
        std::exchange(g_inLine, nullptr)();
    }
    if (isHeldHere) {
        isInside = true;
        waitUntil([] { return mayLeave.load(); });
        isInside = false;
    }
    return __real_localtime_r(time, out);
}
extern "C" int __wrap_nanosleep(const timespec* time, timespec* left) {
    g_naps += t_countsNaps ? 1 : 0;
    return __real_nanosleep(time, left);
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(TraceFork, WaitsForALineThatIsBeingWritten) {
    std::thread writing([] {
        isHeldHere = true;
        trace().trace("parent\n");
    });
    ASSERT_TRUE(waitUntil([] { return isInside.load(); }));
    std::atomic<bool> isForked{false};
    int status = -1;
    std::thread forking([&] {
        status = forkAndTrace();
        isForked = true;
    });
    EXPECT_FALSE(waitUntil([&] { return isForked.load(); }, kMoment));
    EXPECT_THAT(m_log.texts(), ElementsAre("first")) << "the fork did not wait";
    mayLeave = true;
    writing.join();
    forking.join();
    EXPECT_EQ(status, 0);
    EXPECT_THAT(m_log.texts(), UnorderedElementsAre("first", "parent", "child"));
}

TEST_F(TraceFork, WaitsNoLongerThanASecondOrSo) {
    std::thread writing([] {
        isHeldHere = true;
        trace().trace("parent\n");
    });
    ASSERT_TRUE(waitUntil([] { return isInside.load(); }));
    ForkedChild child([] { return 0; });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(isInside) << "the fork waited to the end";
    mayLeave = true;
    writing.join();
}

TEST_F(TraceFork, LinesOfTheForkingThreadAreWritten) {
    EXPECT_EQ(forkAndTrace(), 0);
    trace().trace("parent\n");
    EXPECT_THAT(m_log.texts(), ElementsAre("first", "child", "parent"));
}

TEST_F(TraceFork, OfASignalHandlerDoesNotWaitForTheLineThatItInterrupts) {
    static int status = -1;
    g_inLine = [] { status = forkAndTrace(); };
    trace().trace("parent\n");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(g_naps, 0);
    EXPECT_THAT(m_log.texts(), ElementsAre("first", "child", "parent"));
}

TEST_F(TraceFork, ALineOfAForkHandlerDoesNotWaitForItsOwnFork) {
    g_writesAtFork = true;
    EXPECT_EQ(forkAndTrace(), 0);
    EXPECT_EQ(g_naps, 0);
    EXPECT_THAT(m_log.texts(), ElementsAre("first", "handler", "child"));
}

// The line waits for the fork, and the program's fork waits for the thread with the line.
TEST_F(TraceFork, AProgramThatWaitsForAnotherThreadAtAForkGoesOn) {
    isFinished = false;
    std::thread([] {
        waitUntil([] { return isForking.load(); });
        trace().trace("parent\n");
        isFinished = true;
    }).detach();  // a thread that could be joined would look lost in the child
    EXPECT_EQ(forkAndTrace(), 0);
    EXPECT_TRUE(isFinished) << "the program's handler gave up";
    EXPECT_THAT(m_log.texts(), ElementsAre("first", "parent", "child"));
}

TEST_F(TraceFork, ChildrenOfAProcessThatWritesManyLinesWriteTheirs) {
    constexpr int kChildren = 300;
    std::atomic<bool> isOver{false};
    std::thread writing([&] {
        while (!isOver) {
            trace().trace("parent\n");
        }
    });
    int failures = 0;
    for (int i = 0; i < kChildren && failures == 0; ++i) {
        failures += forkAndTrace() != 0 ? 1 : 0;
    }
    isOver = true;
    writing.join();
    EXPECT_EQ(failures, 0);
    const auto texts = m_log.texts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "child"), kChildren);
}
