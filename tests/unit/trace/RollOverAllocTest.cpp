// The log file and the calendar.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "RegLib/trace/Trace.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"
#include "support/Wait.h"
#include "unit/trace/RollOverFixture.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using namespace vqtest;

namespace {

class RollOver : public vqtest::RollOverFixture {};

}  // namespace

TEST_F(RollOver, NamesTheFileByYearMonthAndDay) {
    write("x");
    EXPECT_THAT(m_log.files(), ElementsAre(kFile15));
}

TEST_F(RollOver, PadsTheDate) {
    g_now = 1073001600;  // 2 January 2004
    write("x");
    EXPECT_THAT(m_log.files(), ElementsAre(kDirectory + "RegLibTrace-040102.Log"));
}

TEST_F(RollOver, CountsTheDaysInLocalTime) {
    ::setenv("TZ", "EAST-1", 1);
    ::tzset();
    write("x");
    EXPECT_THAT(m_log.files(), ElementsAre(kFile16));
    std::tm now{};
    trace().getCurTime(&now);
    EXPECT_EQ(now.tm_mday, 16);
    EXPECT_EQ(now.tm_hour, 0);
    EXPECT_EQ(now.tm_min, 58);
}

TEST_F(RollOver, StartsANewFileAtMidnight) {
    g_now = kMidnight - 1;
    write("before");
    write("still before");
    g_now = kMidnight;
    write("after");
    write("long after");
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before", "still before"));
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "after", "long after"));
}

// As a thread finds that has waited to open the file of a new day, and that another one has opened meanwhile.
TEST_F(RollOver, WhoHasNothingToOpenAnyMoreLeavesTheNextDayToAll) {
    write("before");
    g_once = kMidnight;
    trace().openTraceFile();
    EXPECT_EQ(g_once, 0);
    write("same");
    g_now = kMidnight;
    write("after");
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before", "same"));
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "after"));
}

TEST_F(RollOver, KeepsTheFileAsTheMinutesPass) {
    g_now = kMidnight;
    for (const std::time_t minutes : {0, 1, 2, 59, 60, 1439}) {
        g_now = kMidnight + minutes * kMinute;
        write("x");
    }
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "x", "x", "x", "x", "x", "x"));
    EXPECT_THAT(m_log.files(), ElementsAre(kFile16));
}

TEST_F(RollOver, GoesOnOverManyDays) {
    for (int day = 0; day < 5; ++day) {
        g_now = kMidnight + day * kDay;
        write("x");
    }
    EXPECT_EQ(m_log.files().size(), 5u);
    EXPECT_EQ(m_log.read().lines.size(), 10u);
}

TEST_F(RollOver, AppendsWithAnotherHeaderWhenADayComesAgain) {
    write("before");
    g_now = kMidnight;
    write("after");
    g_now = kMidnight - 1;  // the clock was put back
    write("again");
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before", "***", "again"));
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "after"));
}

TEST_F(RollOver, LooksAtTheDayOfTheMonthOnly) {
    write("november");
    g_now += 30 * kDay;
    write("december");
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "november", "december"));
    EXPECT_THAT(m_log.files(), ElementsAre(kFile15));
}

TEST_F(RollOver, HasTheFileOfTheDayOpenAndNoOther) {
    for (int day = 0; day < 4; ++day) {
        g_now = kMidnight + day * kDay;
        write("x");
        EXPECT_THAT(openLogs(), ElementsAre(m_log.files().back()));
    }
    EXPECT_EQ(fcntl(descriptorOf(m_log.files().back()), F_GETFD), FD_CLOEXEC);
}

TEST_F(RollOver, HasNoFileOpenWhenTheFileOfTheNewDayCannotBeOpened) {
    write("before");
    fs::create_directory(kFile16);
    g_now = kMidnight;
    write("lost");
    EXPECT_THAT(openLogs(), IsEmpty());
    g_now = kMidnight + kDay;
    write("kept");
    EXPECT_THAT(openLogs(), ElementsAre(kDirectory + "RegLibTrace-261117.Log"));
}

TEST_F(RollOver, MissesADescriptorThatIsClosedWithinASecond) {
    write("before");
    write("same second");
    ::close(descriptorOf(kFile15));
    write("after");
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before", "same second", "***", "after"));
}

TEST_F(RollOver, LeavesADescriptorThatIsTheProgramsNowOpenAtItsEnd) {
    write("before");
    const int descriptor = descriptorOf(kFile15);
    ASSERT_EQ(::dup2(0, descriptor), descriptor);
    delete &trace();
    EXPECT_EQ(VQRegLib::g_pregLibTrace.load(), nullptr);
    EXPECT_EQ(::close(descriptor), 0);
}

TEST_F(RollOver, NeedsNoDescriptorMoreThanItHas) {
    write("before");
    const int own = descriptorOf(kFile15);
    ASSERT_GE(own, 0);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit tight{static_cast<rlim_t>(own) + 1, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::vector<int> filling;
    for (int fd = dup(0); fd >= 0; fd = dup(0)) {
        filling.push_back(fd);
    }
    g_now = kMidnight;
    write("after");
    std::for_each(filling.begin(), filling.end(), ::close);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "after"));
    EXPECT_THAT(openLogs(), ElementsAre(kFile16));
}

TEST_F(RollOver, LosesNoLineOfManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kLines = 400;
    g_now = kMidnight - 1;
    std::atomic<int> written{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (int line = 0; line < kLines; ++line) {
                trace().trace("thread %d line %d\n", i, line);
                ++written;
            }
        });
    }
    vqtest::waitUntil([&] { return written.load() > kLines; });
    g_now = kMidnight;
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<std::string> texts = m_log.texts();
    EXPECT_EQ(texts.size(), std::size_t{kThreads * kLines});
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::unique(texts.begin(), texts.end()), texts.end());
    for (const std::string& file : m_log.files()) {
        const std::vector<std::string> lines = linesOf(file);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "***"), 1) << file;
    }
}
