// The directory of the log: missing, full of something else, or long. In an executable of its own, because it
// replaces calls of the C library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "unit/trace/RollOverFixture.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace vqtest;

namespace {

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
template struct Opened<&CRegLibTrace::setDirectory, &CRegLibTrace::m_directory>;

int g_localTimes = 0;  // so often it was made out

class RollOverDirectory : public RollOverFixture {};

class RollOverWithoutDirectory : public RollOverFixture {
protected:
    RollOverWithoutDirectory() : RollOverFixture(TraceLog::Directory::eLeaveMissing) {}
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
std::tm* __real_localtime_r(const std::time_t* time, std::tm* out);
std::tm* __wrap_localtime_r(const std::time_t* time, std::tm* out);

std::tm* __wrap_localtime_r(const std::time_t* time, std::tm* out) {
    ++g_localTimes;
    return __real_localtime_r(time, out);
}
}
// NOLINTEND(bugprone-reserved-identifier)

// Each takes a lock that all threads of the process share.
TEST_F(RollOverWithoutDirectory, LinesOfOneSecondMakeOutTheLocalTimeOnce) {
    write("lost");
    ++g_now;
    g_localTimes = 0;
    for (int i = 0; i < 100; ++i) {
        write("lost");
    }
    EXPECT_EQ(g_localTimes, 1);
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

TEST_F(RollOverDirectory, DropsLinesWhenTheFileOfTheNewDayCannotBeOpened) {
    write("before");
    fs::create_directory(kFile16);
    fs::permissions(kFile16, fs::perms::owner_all);
    g_now = kMidnight;
    write("lost");
    struct stat status {};
    ASSERT_EQ(stat(kFile16.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0700u) << "what is no file is left alone";
    fs::remove(kFile16);
    write("lost");
    g_now = kMidnight + kMinute;
    write("kept");
    EXPECT_THAT(linesOf(kFile15), ElementsAre("***", "before"));
    EXPECT_THAT(linesOf(kFile16), ElementsAre("***", "kept"));
}

TEST_F(RollOverDirectory, CutsALongDirectory) {
    const std::string longDirectory = "/tmp/" + std::string(245, 'd') + "/" + std::string(60, 'e');
    (trace().*setDirectoryMember())(longDirectory.c_str());
    EXPECT_EQ(trace().*directoryMember(), longDirectory.substr(0, 254));
    const std::string fitting = longDirectory.substr(0, 254);
    (trace().*setDirectoryMember())(fitting.c_str());
    EXPECT_EQ(trace().*directoryMember(), fitting);
    (trace().*setDirectoryMember())("/tmp/");
    EXPECT_EQ(std::string(trace().*directoryMember()), "/tmp/");
}

TEST_F(RollOverDirectory, CutsALongFileName) {
    const std::string directory = "/tmp/" + std::string(240, 'd') + "/";
    ASSERT_EQ(directory.size(), 246u);
    fs::create_directory(directory);
    (trace().*setDirectoryMember())(directory.c_str());
    write("x");
    EXPECT_TRUE(fs::exists(directory + "RegLibT"));  // 253 characters in all
    EXPECT_THAT(linesOf(directory + "RegLibT"), ElementsAre("***", "x"));
}

TEST_F(RollOverDirectory, UsesTheWorkingDirectoryWithoutADirectory) {
    const vqtest::TempStore store;
    fs::current_path(store.directory());
    (trace().*setDirectoryMember())("");
    write("x");
    EXPECT_THAT(store.files(), ElementsAre("RegLibTrace-261115.Log"));
    fs::current_path("/");
}
