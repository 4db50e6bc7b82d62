// The log file and the calendar. In an executable of its own, because it replaces the clock by which
// the library chooses the file.
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

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using VQRegLib::g_pregLibTrace;
using vqtest::TraceLine;
using vqtest::TraceLog;

namespace {

constexpr std::time_t kMinute = 60;
constexpr std::time_t kDay = 24 * 60 * kMinute;
constexpr std::time_t kMidnight = 1794787200;  // the beginning of 16 November 2026
const std::string kDirectory = "/cf/corvanedata/Logs/";
const std::string kFile15 = kDirectory + "RegLibTrace-261115.Log";
const std::string kFile16 = kDirectory + "RegLibTrace-261116.Log";

std::atomic<std::time_t> g_now{kMidnight - 2 * kMinute};

using SetDirectory = void (CRegLibTrace::*)(const char*);
using DirectoryText = char (CRegLibTrace::*)[256];
SetDirectory setDirectoryMember();
DirectoryText directoryMember();

// Lets the tests reach two private members: nothing else gives the object another directory.
template <SetDirectory setter, DirectoryText text>
struct Opened {
    friend SetDirectory setDirectoryMember() { return setter; }
    friend DirectoryText directoryMember() { return text; }
};
template struct Opened<&CRegLibTrace::setDirectory, &CRegLibTrace::m_szDirectory>;

class RollOver : public testing::Test {
protected:
    explicit RollOver(TraceLog::Directory directory = TraceLog::Directory::eCreate)
        : m_log(1, directory) {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
        CRegLibTrace::createInstance();
    }

    static CRegLibTrace& trace() { return *g_pregLibTrace.load(); }
    static void write(const char* text) { trace().trace("%s\n", text); }

    // The texts of one file; "***" stands for its headers.
    static std::vector<std::string> linesOf(const std::string& path) {
        std::vector<std::string> result;
        const std::string text = vqtest::readFile(path);
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = std::min(text.find('\n', begin), text.size());
            const auto line = vqtest::parseTraceLine(text.substr(begin, end - begin));
            result.push_back(!line ? "malformed" : line->isHeader ? "***" : line->text);
            begin = end + 1;
        }
        return result;
    }

    // The files of the log that this process has open.
    static std::vector<std::string> openLogs() {
        std::vector<std::string> result;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            const std::string target = fs::read_symlink(entry.path(), error).string();
            if (target.starts_with(kDirectory)) {
                result.push_back(target);
            }
        }
        return result;
    }

    static int descriptorOf(const std::string& path) {
        std::error_code error;
        int fd = 255;
        while (fd >= 0 &&
               fs::read_symlink("/proc/self/fd/" + std::to_string(fd), error) != fs::path(path)) {
            --fd;
        }
        return fd;
    }

    TraceLog m_log;
};

class RollOverWithoutDirectory : public RollOver {
protected:
    RollOverWithoutDirectory() : RollOver(TraceLog::Directory::eLeaveMissing) {}
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" std::time_t __wrap_time(std::time_t* out);

extern "C" std::time_t __wrap_time(std::time_t* out) {
    const std::time_t now = g_now.load();
    if (out) {
        *out = now;
    }
    return now;
}
// NOLINTEND(bugprone-reserved-identifier)

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

TEST_F(RollOverWithoutDirectory, OpensNothing) {
    write("lost");
    EXPECT_FALSE(fs::exists("/cf"));
}

TEST_F(RollOverWithoutDirectory, TriesAgainWhenTheMinuteChanges) {
    g_now = kMidnight;
    write("lost");
    fs::create_directories(kDirectory);
    write("lost too");
    g_now = kMidnight + kMinute - 1;
    write("lost as well");
    EXPECT_THAT(m_log.files(), IsEmpty());
    g_now = kMidnight + kMinute;
    write("kept");
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "kept"));
}

TEST_F(RollOverWithoutDirectory, TriesOnceInAMinute) {
    g_now = kMidnight;
    write("lost");
    g_now = kMidnight + kMinute;
    write("lost");
    fs::create_directories(kDirectory);
    g_now = kMidnight + kMinute + 59;
    write("lost");
    EXPECT_THAT(m_log.files(), IsEmpty());
    g_now = kMidnight + 2 * kMinute;
    write("kept");
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "kept"));
}

TEST_F(RollOverWithoutDirectory, TriesAgainInTheSameMinuteOfAnotherDay) {
    g_now = kMidnight;
    write("lost");
    fs::create_directories(kDirectory);
    g_now = kMidnight + kDay;
    write("kept");
    EXPECT_THAT(m_log.files(), ElementsAre(kDirectory + "RegLibTrace-261117.Log"));
}

TEST_F(RollOver, DropsLinesWhenTheFileOfTheNewDayCannotBeOpened) {
    write("before");
    fs::create_directory(kFile16);
    fs::permissions(kFile16, fs::perms::owner_all);
    g_now = kMidnight;
    write("lost");
    struct stat status {};
    ASSERT_EQ(stat(kFile16.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0666u)
        << "the mode is set whether or not it could be opened";
    fs::remove(kFile16);
    write("lost");
    g_now = kMidnight + kMinute;
    write("kept");
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before"));
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "kept"));
}

TEST_F(RollOver, CutsALongDirectory) {
    const std::string longDirectory = "/tmp/" + std::string(245, 'd') + "/" + std::string(60, 'e');
    (trace().*setDirectoryMember())(longDirectory.c_str());
    EXPECT_EQ(trace().*directoryMember(), longDirectory.substr(0, 254));
    const std::string fitting = longDirectory.substr(0, 254);
    (trace().*setDirectoryMember())(fitting.c_str());
    EXPECT_EQ(trace().*directoryMember(), fitting);
    (trace().*setDirectoryMember())("/tmp/");
    EXPECT_EQ(std::string(trace().*directoryMember()), "/tmp/");
}

TEST_F(RollOver, CutsALongFileName) {
    const std::string directory = "/tmp/" + std::string(240, 'd') + "/";
    ASSERT_EQ(directory.size(), 246u);
    fs::create_directory(directory);
    (trace().*setDirectoryMember())(directory.c_str());
    write("x");
    EXPECT_TRUE(fs::exists(directory + "RegLibT"));  // 253 characters in all
    EXPECT_THAT(linesOf(directory + "RegLibT"), ElementsAre("***", "x"));
}

TEST_F(RollOver, UsesTheWorkingDirectoryWithoutADirectory) {
    const vqtest::TempStore store;
    fs::current_path(store.directory());
    (trace().*setDirectoryMember())("");
    write("x");
    EXPECT_THAT(store.files(), ElementsAre("RegLibTrace-261115.Log"));
    fs::current_path("/");
}
