// The file of a new day is opened, and the system takes its time, or refuses to put it in the old one's
// place. In an executable of its own, because it replaces calls of the system.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <string>
#include <thread>

#include "RegLib/trace/Trace.h"
#include "support/Wait.h"
#include "unit/trace/RollOverFixture.h"

using testing::ElementsAre;
using namespace vqtest;

namespace {

std::atomic<bool> g_holdsOpening{false};
std::atomic<int> g_openings{0};
bool g_refusesDup = false;

class RollOverCalls : public RollOverFixture {};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
int __real_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, ...);
int __real_dup3(int from, int to, int flags);
int __wrap_dup3(int from, int to, int flags);

int __wrap_open(const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (g_holdsOpening.load()) {
        ++g_openings;
        waitUntil([] { return !g_holdsOpening.load(); });
    }
    return __real_open(path, flags, mode);
}

int __wrap_dup3(int from, int to, int flags) {
    errno = EBUSY;
    return g_refusesDup ? -1 : __real_dup3(from, to, flags);
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(RollOverCalls, AThreadThatOpensTheFileForLongHoldsUpNobodyForLong) {
    if (sizeof(void*) != 8) {
        GTEST_SKIP() << "the library calls other functions here";
    }
    write("before");
    g_now = kMidnight;
    g_holdsOpening.store(true);
    std::thread opening([&] { write("of the thread that opens"); });
    EXPECT_TRUE(waitUntil([] { return g_openings.load() > 0; }));
    write("beside it");
    g_holdsOpening.store(false);
    opening.join();
    EXPECT_EQ(g_openings.load(), 1) << "nobody else has tried to";
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before", "beside it"));
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "of the thread that opens"));
}

// As long as there is no file at all, the others wait for a moment so that few lines are lost.
TEST_F(RollOverCalls, TheFirstOpeningHoldsUpNobodyForEver) {
    if (sizeof(void*) != 8) {
        GTEST_SKIP() << "the library calls other functions here";
    }
    g_holdsOpening.store(true);
    std::thread opening([&] { write("of the thread that opens"); });
    EXPECT_TRUE(waitUntil([] { return g_openings.load() > 0; }));
    write("lost");
    g_holdsOpening.store(false);
    opening.join();
    EXPECT_EQ(g_openings.load(), 1);
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "of the thread that opens"));
}

TEST_F(RollOverCalls, AFileThatCannotTakeTheOldOnesDescriptorHasItsOwn) {
    write("before");
    g_now = kMidnight;
    g_refusesDup = true;
    write("after");
    g_refusesDup = false;
    EXPECT_THAT(openLogs(), ElementsAre(kFile16));
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before"));
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "after"));
    g_now = kMidnight + kDay;
    write("the day after");
    EXPECT_THAT(openLogs(), ElementsAre(m_log.files().back()));
}
