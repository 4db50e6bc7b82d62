// What the log file looks like.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "RegLib/trace/Trace.h"
#include "portable/Portable.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::SizeIs;
using VQRegLib::CPortable;
using VQRegLib::g_pregLibTrace;
using vqtest::ForkedChild;
using vqtest::TraceLine;
using vqtest::TraceLog;

namespace {

std::string clockText() {
    CPortable::LocalTime now{};
    CPortable::GetLocalTime(&now);
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", now.wHour, now.wMinute, now.wSecond,
                  now.wMilliseconds);
    return text;
}

std::string idsText() {
    char text[64];
    std::snprintf(text, sizeof text, " (%5d:%5d) ", static_cast<int>(getpid()),
                  static_cast<int>(gettid()));
    return text;
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777u;
}

class TraceLines : public testing::Test {
protected:
    TraceLines() { CRegLibTrace::createInstance(); }

    static CRegLibTrace& trace() { return *g_pregLibTrace.load(); }

    // The file of the day without its header line.
    std::string body() const {
        const std::vector<std::string> files = m_log.files();
        if (files.size() != 1) {
            return "<" + std::to_string(files.size()) + " files>";
        }
        const std::string text = vqtest::readFile(files.front());
        return text.substr(text.find('\n') + 1);
    }

    TraceLog m_log{1};
};

constexpr std::size_t kLongest = 511;

}  // namespace

TEST_F(TraceLines, ThereIsNoFileBeforeTheFirstLine) {
    EXPECT_THAT(m_log.files(), SizeIs(0));
}

TEST_F(TraceLines, TheFirstLineIsPrecededByAHeader) {
    trace().trace("text\n");
    ASSERT_THAT(m_log.files(), ElementsAre(TraceLog::path()));
    const std::string text = vqtest::readFile(TraceLog::path());
    const std::string header = "*** Log file opened (" + std::to_string(getpid()) + ": " +
                               std::to_string(gettid()) + ") " + CPortable::getExeName() + " " +
                               CPortable::getBuildVersion() + "\n";
    EXPECT_EQ(text.substr(0, header.size()), header);
}

TEST_F(TraceLines, OpeningWritesTheHeaderOnly) {
    trace().openTraceFile();
    trace().openTraceFile();
    EXPECT_EQ(body(), "");
}

TEST_F(TraceLines, ALineHasTheTimeAndTheIdsBeforeIt) {
    const std::string before = clockText();
    trace().trace("text\n");
    const std::string after = clockText();
    const std::string line = body();
    ASSERT_GT(line.size(), 12u);
    EXPECT_EQ(line.substr(12), idsText() + "text\n");
    const std::string time = line.substr(0, 12);
    if (before <= after) {
        EXPECT_LE(before, time);
        EXPECT_LE(time, after);
    } else {  // midnight was in between
        EXPECT_TRUE(before <= time || time <= after) << time;
    }
}

TEST_F(TraceLines, AreInTheFileAtOnceAndInTheirOrder) {
    std::vector<std::string> expected;
    for (int i = 0; i < 20; ++i) {
        trace().trace("line %d\n", i);
        expected.push_back("line " + std::to_string(i));
        EXPECT_EQ(m_log.texts(), expected);
    }
}

TEST_F(TraceLines, AreFormattedOnce) {
    const char* const percents = "100%% %s %n";
    trace().trace("%s (0x%08X) %5d|%%\n", percents, 0xABCu, 7);
    EXPECT_THAT(m_log.texts(), ElementsAre("100%% %s %n (0x00000ABC)     7|%"));
}

TEST_F(TraceLines, BringTheirOwnLineEnd) {
    trace().trace("no end");
    EXPECT_EQ(body().substr(12), idsText() + "no end");
    trace().trace("two\nlines\n");
    EXPECT_EQ(body().substr(12 + idsText().size() + 6 + 12), idsText() + "two\nlines\n");
}

TEST_F(TraceLines, MayBeEmpty) {
    trace().trace("%s", "");
    EXPECT_EQ(body().substr(12), idsText());
}

TEST_F(TraceLines, AreWholeUpToTheLimit) {
    const std::size_t room = kLongest - 12 - idsText().size() - 1;
    trace().trace("%s\n", std::string(room, 'x').c_str());
    EXPECT_EQ(body().size(), kLongest);
    EXPECT_EQ(body().substr(12), idsText() + std::string(room, 'x') + "\n");
}

TEST_F(TraceLines, LoseTheirLineEndPastTheLimit) {
    const std::size_t room = kLongest - 12 - idsText().size();
    trace().trace("%s\n", std::string(room, 'x').c_str());
    EXPECT_EQ(body().size(), kLongest);
    EXPECT_EQ(body().substr(12), idsText() + std::string(room, 'x'));
}

TEST_F(TraceLines, AreCutAtTheLimit) {
    const std::string prefix = idsText();
    trace().trace("%s!\n", std::string(5000, 'x').c_str());
    EXPECT_EQ(body().substr(12), prefix + std::string(kLongest - 12 - prefix.size(), 'x'));
    trace().trace("next\n");
    EXPECT_EQ(body().substr(kLongest + 12), prefix + "next\n");
}

TEST_F(TraceLines, GoToAFileThatEverybodyMayUse) {
    const mode_t old = umask(077);
    trace().trace("x\n");
    umask(old);
    EXPECT_EQ(modeOf(TraceLog::path()), 0666u);
}

TEST_F(TraceLines, AreAppendedToTheFileOfTheDay) {
    std::ofstream(TraceLog::path()) << "earlier\n";
    fs::permissions(TraceLog::path(), fs::perms::owner_read | fs::perms::owner_write);
    trace().trace("later\n");
    EXPECT_EQ(vqtest::readFile(TraceLog::path()).substr(0, 12), "earlier\n*** ");
    EXPECT_EQ(m_log.read().lines.back().text, "later");
    EXPECT_EQ(modeOf(TraceLog::path()), 0666u);
}

TEST_F(TraceLines, OfSeveralProcessesAreInOneFile) {
    trace().trace("parent\n");
    const auto child = [] {
        // A process of its own would begin with these.
        CRegLibTrace::m_lFakeMutex = 0;
        g_pregLibTrace = nullptr;
        CRegLibTrace::createInstance();
        trace().trace("child\n");
        return 0;
    };
    ForkedChild first(child);
    EXPECT_EQ(first.wait(), 0);
    ForkedChild second(child);
    EXPECT_EQ(second.wait(), 0);
    EXPECT_THAT(m_log.texts(), ElementsAre("parent", "child", "child"));
    EXPECT_THAT(m_log.texts(TraceLog::Addresses::eKeep, second.pid()), ElementsAre("child"));
    const auto lines = m_log.read().lines;
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const TraceLine& line) { return line.isHeader; }),
              3);
}

TEST_F(TraceLines, AreNotInheritedByAProgramThatIsStarted) {
    trace().trace("x\n");
    int found = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (fs::read_symlink(entry.path(), error) == TraceLog::path()) {
            ++found;
            const int fd = std::stoi(entry.path().filename().string());
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        }
    }
    EXPECT_EQ(found, 1);
}

TEST_F(TraceLines, NeverGoToAFileThatGotTheNumber) {
    const vqtest::TempStore place;
    ForkedChild program([&] {
        trace().trace("before\n");
        if (::close_range(3, ~0u, 0) != 0) {
            return 1;
        }
        const std::string path = place.directory() + "/own";
        const int own = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
        while (::dup(own) < 32) {
        }
        trace().trace("after\n");
        trace().trace("later\n");
        for (int fd = own; fd <= 32; ++fd) {
            if (::fcntl(fd, F_GETFD) == -1) {
                return 2;
            }
        }
        return fs::file_size(path) == 0 ? 0 : 3;
    });
    EXPECT_EQ(program.wait(), 0);
    EXPECT_THAT(m_log.texts(), ElementsAre("before", "after", "later"));
}

TEST_F(TraceLines, GoOnWhenTheDescriptorWasClosed) {
    ForkedChild program([&] {
        trace().trace("before\n");
        for (int i = 0; i < 3; ++i) {
            if (::close_range(3, ~0u, 0) != 0) {
                return 1;
            }
            trace().trace("after %d\n", i);
        }
        return 0;
    });
    EXPECT_EQ(program.wait(), 0);
    EXPECT_THAT(m_log.texts(), ElementsAre("before", "after 0", "after 1", "after 2"));
}

TEST_F(TraceLines, ObjectsAreNamedByTheLowBitsOfTheirAddress) {
    EXPECT_EQ(VQRegLib::traceId(nullptr), 0u);
    EXPECT_EQ(VQRegLib::traceId(reinterpret_cast<const void*>(std::uintptr_t{0x1234})), 0x1234u);
    EXPECT_EQ(VQRegLib::traceId(
                  reinterpret_cast<const void*>(static_cast<std::uintptr_t>(0x7FFF89ABCDEFull))),
              0x89ABCDEFu);
    EXPECT_STREQ(VQRegLib::traceText("x"), "x");
    EXPECT_STREQ(VQRegLib::traceText(nullptr), "(null)");
}
