// What other threads and the program do while a line is being made, or the file opened. In an executable of its
// own, because it replaces calls in which they may come.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "RegLib/trace/Trace.h"
#include "support/Wait.h"
#include "unit/trace/RollOverFixture.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace vqtest;

namespace {

// Run by the thread that asks for the local time, after so many times.
std::function<void()> g_meanwhile;
int g_skipped = 0;

std::atomic<bool> g_isInside{false};
std::atomic<bool> g_mayLeave{false};
thread_local bool t_isHeldInLine = false;

std::atomic<int> g_naps{0};
thread_local bool t_countsNaps = false;
thread_local bool t_isHeldInNap = false;

bool g_refusesDup = false;

void during(int skipped, std::function<void()> what) {
    g_skipped = skipped;
    g_meanwhile = std::move(what);
}

class TraceMeanwhile : public RollOverFixture {
protected:
    using RollOverFixture::RollOverFixture;
};

class TraceMeanwhileWithoutDirectory : public RollOverFixture {
protected:
    TraceMeanwhileWithoutDirectory() : RollOverFixture(TraceLog::Directory::eLeaveMissing) {}
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
std::tm* __real_localtime_r(const std::time_t* time, std::tm* out);
std::tm* __wrap_localtime_r(const std::time_t* time, std::tm* out);
int __real_fputs(const char* text, std::FILE* file);
int __wrap_fputs(const char* text, std::FILE* file);
int __real_nanosleep(const timespec* time, timespec* left);
int __wrap_nanosleep(const timespec* time, timespec* left);
int __real_dup3(int from, int to, int flags);
int __wrap_dup3(int from, int to, int flags);

std::tm* __wrap_localtime_r(const std::time_t* time, std::tm* out) {
    if (g_meanwhile && g_skipped-- == 0) {
        std::exchange(g_meanwhile, nullptr)();
    }
    return __real_localtime_r(time, out);
}

int __wrap_fputs(const char* text, std::FILE* file) {
    if (t_isHeldInLine) {
        g_isInside = true;
        waitUntil([] { return g_mayLeave.load(); });
    }
    return __real_fputs(text, file);
}

int __wrap_nanosleep(const timespec* time, timespec* left) {
    g_naps += t_countsNaps ? 1 : 0;
    if (std::exchange(t_isHeldInNap, false)) {
        g_isInside = true;
        waitUntil([] { return g_mayLeave.load(); });
    }
    return __real_nanosleep(time, left);
}

int __wrap_dup3(int from, int to, int flags) {
    errno = EBUSY;
    return g_refusesDup ? -1 : __real_dup3(from, to, flags);
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(TraceMeanwhile, ALineWhoseDescriptorIsClosedIsWrittenAllTheSame) {
    write("before");
    write("same second");
    during(0, [] { ::close(descriptorOf(kFile15)); });
    write("after");
    EXPECT_FALSE(g_meanwhile);
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before", "same second", "***", "after"));
    EXPECT_THAT(openLogs(), ElementsAre(kFile15));
}

TEST_F(TraceMeanwhile, ALineWhoseFileIsClosedForGoodIsLost) {
    write("before");
    write("same second");
    fs::create_directory(kFile16);
    during(0, [] {
        g_now = kMidnight;
        std::thread([] { write("lost too"); }).join();
    });
    write("lost");
    EXPECT_FALSE(g_meanwhile);
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before", "same second"));
    EXPECT_THAT(openLogs(), IsEmpty());
    fs::remove(kFile16);
}

TEST_F(TraceMeanwhile, TheFileIsNotClosedUnderALineThatIsBeingWritten) {
    g_mayLeave = false;
    write("before");
    std::thread writing([] {
        t_isHeldInLine = true;
        write("under way");
    });
    EXPECT_TRUE(waitUntil([] { return g_isInside.load(); }));
    g_now = kMidnight;
    g_refusesDup = true;  // else the new file would be put under the old one's descriptor
    std::thread opening([] {
        t_countsNaps = true;
        write("after");
    });
    EXPECT_TRUE(waitUntil([] { return g_naps.load() > 0; })) << "it waits for nobody";
    g_mayLeave = true;
    writing.join();
    opening.join();
    g_refusesDup = false;
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before", "under way"));
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "after"));
    EXPECT_THAT(openLogs(), ElementsAre(kFile16));
}

// There is nothing to open in its second, but by the clock of the thread that opens the next has begun.
TEST_F(TraceMeanwhileWithoutDirectory, ALineWaitsForWhoOpensTheFileInItsSecond) {
    g_isInside = g_mayLeave = false;
    write("lost");
    write("lost, and nothing is to be opened any more");
    fs::create_directories(kDirectory);
    std::thread beside;
    during(1, [&] {
        beside = std::thread([] {
            t_isHeldInNap = true;
            write("beside");
        });
        EXPECT_TRUE(waitUntil([] { return g_isInside.load(); })) << "it does not wait";
        g_now += kMinute;
    });
    g_once = g_now + kMinute;
    trace().openTraceFile();
    g_mayLeave = true;
    ASSERT_TRUE(beside.joinable());
    beside.join();
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "beside"));
}
