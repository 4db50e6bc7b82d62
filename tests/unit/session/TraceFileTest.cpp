// The trace log's file, its lines and its level.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "RegLib/trace/Trace.h"
#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/TinyFileSystem.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using vqtest::readFile;
using vqtest::TempStore;
using vqtest::TinyFileSystem;
using vqtest::TraceLog;

namespace {

constexpr char kDefaultFile[] = "/etc/Velquist.cfg";

// Opens the default store and with it the trace.
class OpenedDefault {
public:
    CRegLib session{nullptr, nullptr, CRegLib::eLocationDefault, nullptr};

    void makeLine(const std::string& name = "none") {
        session.VQRegDeleteValue(*session.RootKey(), name.c_str());
    }
};

// Moves the local time of the process, from the next second on, because a local time is good for its
// second; the direction is that of the TZ variable, against the sun.
void setZone(const char* zone) {
    const std::time_t before = std::time(nullptr);
    ASSERT_EQ(::setenv("TZ", zone, 1), 0);
    ::tzset();
    ASSERT_TRUE(vqtest::waitUntil([before] { return std::time(nullptr) != before; }));
}

int minuteNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    return local.tm_min;
}

std::vector<std::string> logFiles() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(TraceLog::directory())) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

}  // namespace

TEST(TraceFile, BeginsWithAHeader) {
    const TraceLog log(1);
    OpenedDefault opened;
    opened.makeLine();
    opened.makeLine();
    const std::string content = readFile(TraceLog::path());
    const std::string self = std::to_string(::getpid());
    EXPECT_THAT(content, StartsWith("*** Log file opened (" + self + ": " + self + ") "));
    EXPECT_THAT(content.substr(0, content.find('\n')),
                HasSubstr(std::filesystem::read_symlink("/proc/self/exe").filename().string()));
    const TraceLog::Content parsed = log.read();
    ASSERT_EQ(parsed.lines.size(), 3u);
    EXPECT_TRUE(parsed.lines[0].isHeader);
    EXPECT_EQ(parsed.lines[1].pid, ::getpid());
    EXPECT_EQ(parsed.lines[1].tid, ::getpid());
    EXPECT_THAT(parsed.malformed, IsEmpty());
}

TEST(TraceFile, IsAppendedToAndEverybodysToWrite) {
    const TraceLog log(1);
    std::ofstream(TraceLog::path()) << "old\n";
    ::chmod(TraceLog::path().c_str(), 0600);
    OpenedDefault opened;
    opened.makeLine();
    EXPECT_THAT(readFile(TraceLog::path()), StartsWith("old\n*** Log file opened ("));
    struct stat status {};
    ASSERT_EQ(::stat(TraceLog::path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0666u);
}

TEST(TraceFile, ALongLineIsCutAndLosesItsEnd) {
    const TraceLog log(1);
    OpenedDefault opened;
    opened.makeLine(std::string(1000, 'x'));
    const std::string content = readFile(TraceLog::path());
    const std::string line = content.substr(content.find('\n') + 1);
    EXPECT_EQ(line.size(), 511u);
    EXPECT_EQ(line.back(), 'x');
}

TEST(TraceFile, TheLongestLineKeepsItsEnd) {
    const TraceLog log(1);
    OpenedDefault opened;
    opened.makeLine("");
    const std::string first = readFile(TraceLog::path());
    const std::size_t fixed = first.size() - first.find('\n') - 1;
    opened.makeLine(std::string(511 - fixed, 'x'));
    EXPECT_EQ(readFile(TraceLog::path()).size(), first.size() + 511);
    EXPECT_THAT(log.read().malformed, IsEmpty());
    opened.makeLine(std::string(512 - fixed, 'x'));
    EXPECT_EQ(log.read().malformed.size(), 1u);
}

TEST(TraceFile, AMissingDirectoryIsTriedAgainInAnotherMinute) {
    setZone("ABC0");
    const TraceLog log(1, TraceLog::Directory::eLeaveMissing);
    OpenedDefault opened;
    opened.makeLine("lost");
    const int minute = minuteNow();
    std::filesystem::create_directories(TraceLog::directory());
    opened.makeLine("lost too");
    if (minuteNow() == minute) {
        EXPECT_THAT(logFiles(), IsEmpty());
    }
    setZone("ABC0:07");
    opened.makeLine("found");
    EXPECT_THAT(log.texts().back(), HasSubstr("/found"));
    EXPECT_THAT(readFile(log.files().front()), Not(HasSubstr("/lost\n")));
}

TEST(TraceFile, LinesThatCannotBeWrittenAreLostAndNothingElse) {
    const TraceLog log(1);
    const TinyFileSystem disk(TraceLog::directory(), "size=64k");
    OpenedDefault opened;
    opened.makeLine("first");
    disk.fill();
    const std::string line(300, 'n');
    for (int i = 0; i < 40; ++i) {  // more than fits into what the file has already
        EXPECT_EQ(opened.session.VQRegDeleteValue(*opened.session.RootKey(), line.c_str()),
                  REGLIB_E_NOT_FOUND);
    }
    EXPECT_LT(readFile(TraceLog::path()).size(), 40 * line.size());
    std::filesystem::remove(TraceLog::directory() + "filling");
    opened.makeLine("last");
    EXPECT_THAT(readFile(TraceLog::path()), HasSubstr("/first\n"));
    EXPECT_THAT(readFile(TraceLog::path()), HasSubstr("/last\n"));
}

TEST(TraceFile, EveryDayHasItsOwn) {
    setZone("ABC12");
    const TraceLog log(1);
    OpenedDefault opened;
    opened.makeLine("first");
    const std::string firstDay = TraceLog::path();
    setZone("ABC-12");
    opened.makeLine("second");
    const std::string secondDay = TraceLog::path();
    ASSERT_NE(firstDay, secondDay);
    EXPECT_THAT(readFile(firstDay), HasSubstr("/first\n"));
    EXPECT_THAT(readFile(firstDay), Not(HasSubstr("/second\n")));
    EXPECT_THAT(readFile(secondDay), StartsWith("*** Log file opened ("));
    EXPECT_THAT(readFile(secondDay), HasSubstr("/second\n"));
    setZone("ABC12");
    opened.makeLine("third");
    EXPECT_THAT(readFile(firstDay), HasSubstr("/third\n"));
}

TEST(TraceLevel, IsWrittenAsOneWhenItIsMissing) {
    std::filesystem::create_directories(TraceLog::directory());
    OpenedDefault opened;
    EXPECT_EQ(readFile(kDefaultFile),
              "[Velquist]\n[Velquist/Logging]\n\"RegLibLogging\"=dword:00000001\n");
    EXPECT_EQ(CRegLibTrace::m_lLogLevel.load(), 1);
    EXPECT_NE(g_pregLibTrace.load(), nullptr);
    opened.makeLine();
    EXPECT_EQ(logFiles().size(), 1u);
}

TEST(TraceLevel, ZeroSwitchesEverythingOff) {
    const TraceLog log(0);
    OpenedDefault opened;
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
    opened.makeLine();
    const CRegLib failing("/missing/x.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_THAT(logFiles(), IsEmpty());
}

TEST(TraceLevel, IsReadOncePerProcess) {
    const TraceLog log(1);
    {
        CRegLib logging(nullptr, "Velquist/Logging", CRegLib::eLocationDefault, nullptr);
        ASSERT_EQ(logging.VQRegSetValue(*logging.RootKey(), "RegLibLogging", 0ul), REGLIB_OK);
    }
    OpenedDefault opened;
    EXPECT_EQ(CRegLibTrace::m_lLogLevel.load(), 1);
    opened.makeLine();
    EXPECT_THAT(log.texts().back(), HasSubstr("deleting value"));
}

TEST(TraceLevel, OfAnyTypeIsTakenAsItIs) {
    std::filesystem::create_directories(TraceLog::directory());
    std::ofstream(kDefaultFile) << "[Velquist/Logging]\n\"RegLibLogging\"=binary:05\n";
    const OpenedDefault opened;
    EXPECT_EQ(CRegLibTrace::m_lLogLevel.load(), 5);
}

TEST(TraceLevel, ThatDoesNotFitIsWrittenAsOne) {
    std::ofstream(kDefaultFile) << "[Velquist/Logging]\n\"RegLibLogging\"=string:four\n";
    const OpenedDefault opened;
    EXPECT_EQ(CRegLibTrace::m_lLogLevel.load(), 1);
    EXPECT_THAT(readFile(kDefaultFile), HasSubstr("\"RegLibLogging\"=dword:00000001\n"));
}

TEST(TraceLevel, IsOneWhereTheDefaultStoreIsMalformed) {
    std::filesystem::create_directories(TraceLog::directory());
    std::ofstream(kDefaultFile) << "nonsense\n";
    const TempStore store;
    CRegLib session(store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    ASSERT_NE(session.RootKey(), nullptr);
    EXPECT_EQ(readFile(kDefaultFile), "nonsense\n");
    EXPECT_EQ(CRegLibTrace::m_lLogLevel.load(), 1);
    session.VQRegDeleteValue(*session.RootKey(), "x");
    EXPECT_EQ(logFiles().size(), 1u);
}

TEST(TraceEcho, ShowsTheLinesOfTheFile) {
    const TraceLog log(3);
    OpenedDefault opened;
    testing::internal::CaptureStdout();
    opened.makeLine("plain");
    CRegLib failing("/missing/x.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    const std::string echo = testing::internal::GetCapturedStdout();
    const std::string content = readFile(TraceLog::path());
    EXPECT_EQ(echo, content.substr(content.find('\n') + 1));
    EXPECT_THAT(echo, HasSubstr("(Error) CRegLibImplFile::FileOpen"));
}

TEST(TraceEcho, AloneShowsErrorsOnly) {
    const TraceLog log(2);
    OpenedDefault opened;
    testing::internal::CaptureStdout();
    opened.makeLine();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    testing::internal::CaptureStdout();
    const CRegLib failing("/missing/x.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    const std::string echo = testing::internal::GetCapturedStdout();
    EXPECT_THAT(echo, HasSubstr(") (Error) CRegLibImplFile::FileOpen (0x"));
    EXPECT_THAT(echo, HasSubstr("\"/missing/x.cfg\" failed, errno 2\n"));
}

TEST(TraceEcho, InterpretsPercentSignsOnceMore) {
    const TraceLog log(3);
    OpenedDefault opened;
    testing::internal::CaptureStdout();
    opened.makeLine("50%%");
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("/50%\n"));
    EXPECT_THAT(log.texts().back(), HasSubstr("/50%%"));
}
