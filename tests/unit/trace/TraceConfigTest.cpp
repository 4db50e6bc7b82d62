// How the level and the directory of the log are read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "RegLib/trace/Trace.h"
#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using VQRegLib::CRegLib;
using VQRegLib::g_pregLibTrace;
using vqtest::TraceLog;

namespace {

const std::string kFile = "/etc/Velquist.cfg";
const std::string kOne = "[Velquist/Logging]\n\"RegLibLogging\"=dword:00000001\n";
const std::string kShared = "/dev/shm/CPBlock.%2Fetc%2FVelquist.cfg";

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::int32_t level() {
    return CRegLibTrace::m_lLogLevel.load();
}

class TraceConfig : public testing::Test {
protected:
    TraceConfig() { fs::create_directories(TraceLog::directory()); }

    // Opens and closes a session on a store that is not the default one, and changes it.
    void useStore() {
        CRegLib session(m_store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        ASSERT_NE(session.RootKey(), nullptr);
        EXPECT_EQ(session.VQRegSetValue(*session.RootKey(), "Port", 8080ul), VQRegLib::REGLIB_OK);
    }

    // The lines of all files of the log, as written.
    static std::string log() {
        std::string text;
        for (const auto& entry : fs::directory_iterator(TraceLog::directory())) {
            text += vqtest::readFile(entry.path().string());
        }
        return text;
    }

    void expectLevelOneInTheLogDirectory() {
        EXPECT_EQ(level(), 1);
        ASSERT_NE(g_pregLibTrace.load(), nullptr);
        REGLIB_TRACE(VQRegLib::eTraceFlow, "flow\n");
        REGLIB_TRACE(VQRegLib::eTraceAlways, "(Error) x\n");
        EXPECT_THAT(log(), HasSubstr(", setting value [Velquist]/Port to 0x00001F90\n"));
        EXPECT_THAT(log(), EndsWith(") (Error) x\n"));
        EXPECT_THAT(log(), testing::Not(HasSubstr(") flow\n")));
    }

    vqtest::TempStore m_store;
};

}  // namespace

TEST_F(TraceConfig, AMissingValueIsWrittenAsOne) {
    useStore();
    EXPECT_THAT(vqtest::readFile(kFile), HasSubstr(kOne));
    expectLevelOneInTheLogDirectory();
}

TEST_F(TraceConfig, TheRestOfTheFileIsKept) {
    writeText(kFile,
              "[Velquist]\n\"Name\"=string:x\n[Velquist/Logging]\n\"Other\"=dword:00000005\n");
    useStore();
    const std::string text = vqtest::readFile(kFile);
    EXPECT_THAT(text, HasSubstr("\"Name\"=string:x\n"));
    EXPECT_THAT(text, HasSubstr("\"Other\"=dword:00000005\n"));
    EXPECT_THAT(text, HasSubstr("\"RegLibLogging\"=dword:00000001\n"));
}

TEST_F(TraceConfig, IsReadFromThePreferredFileWhereItsDirectoryExists) {
    fs::create_directories("/velquist/etc");
    writeText(kFile, "[Velquist/Logging]\n\"RegLibLogging\"=dword:00000004\n");
    writeText("/velquist/etc/Velquist.cfg",
              "[Velquist/Logging]\n\"RegLibLogging\"=dword:00000008\n");
    useStore();
    EXPECT_EQ(level(), 8);
}

TEST_F(TraceConfig, ZeroTurnsTheLogOff) {
    const TraceLog trace(0);
    useStore();
    EXPECT_EQ(level(), 0);
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
    CRegLib broken("/missing/store.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(TraceConfig, TwoPrintsTheErrorsToo) {
    const TraceLog trace(2);
    testing::internal::CaptureStdout();
    useStore();
    { CRegLib broken("/missing/store.cfg", nullptr, CRegLib::eLocationDefault, nullptr); }
    std::fflush(stdout);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(level(), 2);
    EXPECT_THAT(trace.texts(), Contains(StartsWith("(Error) ")));
    EXPECT_THAT(trace.texts(), testing::Each(StartsWith("(Error) ")));
    EXPECT_EQ(log().substr(log().find('\n') + 1), output);
}

TEST_F(TraceConfig, ThirtyOneWritesEverything) {
    const TraceLog trace(31);
    testing::internal::CaptureStdout();
    useStore();
    std::fflush(stdout);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(level(), 31);
    EXPECT_EQ(log().substr(log().find('\n') + 1), output);
    EXPECT_THAT(output, HasSubstr("CRegLibImpl::CRegLibImpl (0x"));
    EXPECT_THAT(output, HasSubstr(", ValueName \"Port\"\n"));
    EXPECT_THAT(output, HasSubstr(", setting value [Velquist]/Port to 0x00001F90\n"));
    EXPECT_THAT(output, HasSubstr("CRegLibImpl::~CRegLibImpl (0x"));
}

TEST_F(TraceConfig, IsReadOnceInAProcess) {
    const TraceLog first(4);
    useStore();
    EXPECT_EQ(level(), 4);
    CRegLibTrace* const object = g_pregLibTrace.load();
    const TraceLog second(31);
    fs::remove(kShared);
    useStore();
    EXPECT_EQ(level(), 4);
    EXPECT_EQ(g_pregLibTrace.load(), object);
}

TEST_F(TraceConfig, TheTypeOfTheValueIsNotChecked) {
    writeText(kFile, "[Velquist/Logging]\n\"RegLibLogging\"=binary:05000000\n");
    CRegLibTrace::createInstance();
    EXPECT_EQ(level(), 5);
}

TEST_F(TraceConfig, AShortValueIsFilledWithZeroes) {
    writeText(kFile, "[Velquist/Logging]\n\"RegLibLogging\"=binary:0C\n");
    CRegLibTrace::createInstance();
    EXPECT_EQ(level(), 12);
}

TEST_F(TraceConfig, AnEmptyTextTurnsTheLogOff) {
    writeText(kFile, "[Velquist/Logging]\n\"RegLibLogging\"=string:\n");
    CRegLibTrace::createInstance();
    EXPECT_EQ(level(), 0);
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
}

TEST_F(TraceConfig, AValueThatIsTooLongIsReplaced) {
    writeText(kFile, "[Velquist/Logging]\n\"RegLibLogging\"=string:everything\n");
    useStore();
    EXPECT_THAT(vqtest::readFile(kFile), HasSubstr(kOne));
    expectLevelOneInTheLogDirectory();
}

TEST_F(TraceConfig, AMalformedFileMeansLevelOneAndIsKept) {
    const std::string malformed = "[Velquist/Logging]\nrubbish\n\"RegLibLogging\"=dword:00000008\n";
    writeText(kFile, malformed);
    useStore();
    EXPECT_EQ(vqtest::readFile(kFile), malformed);
    expectLevelOneInTheLogDirectory();
}

TEST_F(TraceConfig, AnUnavailableDefaultStoreMeansLevelOne) {
    fs::create_symlink("/tmp", kShared);
    useStore();
    EXPECT_FALSE(fs::exists(kFile));
    expectLevelOneInTheLogDirectory();
}

// The file was removed; any program that starts opens the default store for its trace level.
TEST_F(TraceConfig, TheBackupOfALostStoreSurvivesTheReadingOfTheLevel) {
    const std::string backup = std::string(kFile) + ".bak";
    const std::string text = "[Velquist]\n\"precious\"=string:x\n";
    for (const bool isEmpty : {false, true}) {
        fs::remove(kFile);
        std::ofstream(backup) << text;
        if (isEmpty) {
            std::ofstream(std::string(kFile)).flush();
        }
        CRegLibTrace::m_lFakeMutex = 0;
        useStore();
        EXPECT_EQ(vqtest::readFile(backup), text) << isEmpty;
    }
}

TEST_F(TraceConfig, AFileThatCannotBeReadMeansLevelOne) {
    fs::create_directory(kFile);
    useStore();
    expectLevelOneInTheLogDirectory();
}

TEST_F(TraceConfig, TheDefaultStoreItselfCanBeTheFirst) {
    {
        CRegLib session(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
        ASSERT_NE(session.RootKey(), nullptr);
    }
    EXPECT_THAT(vqtest::readFile(kFile), HasSubstr(kOne));
    EXPECT_EQ(level(), 1);
    CRegLib logging(nullptr, "Velquist/Logging", CRegLib::eLocationDefault, nullptr);
    ASSERT_NE(logging.RootKey(), nullptr);
    EXPECT_EQ(logging.VQRegSetValue(*logging.RootKey(), "RegLibLogging", 31ul),
              VQRegLib::REGLIB_OK);
    EXPECT_EQ(level(), 1);
}
