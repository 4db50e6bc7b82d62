// What others put into the log's place, in a directory that all may write.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

using namespace VQRegLib;
using testing::HasSubstr;
using vqtest::readFile;
using vqtest::TraceLog;

namespace fs = std::filesystem;

namespace {

constexpr char kSecret[] = "/tmp/secret";

class TraceFileAttack : public testing::Test {
protected:
    TraceFileAttack() {
        std::ofstream(kSecret) << "secret";
        ::chmod(kSecret, 0600);
    }

    static void makeLine() {
        CRegLib session(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
        session.VQRegDeleteValue(*session.RootKey(), "none");
    }

    void expectSecretUntouched() const {
        EXPECT_EQ(readFile(kSecret), "secret");
        struct stat status {};
        ASSERT_EQ(::stat(kSecret, &status), 0);
        EXPECT_EQ(status.st_mode & 07777u, 0600u);
    }

    const TraceLog log{1};
};

}  // namespace

TEST_F(TraceFileAttack, ALinkIsNotFollowed) {
    fs::create_symlink(kSecret, TraceLog::path());
    makeLine();
    expectSecretUntouched();
}

TEST_F(TraceFileAttack, ASecondNameOfAFileIsNotWrittenTo) {
    fs::create_hard_link(kSecret, TraceLog::path());
    makeLine();
    expectSecretUntouched();
}

TEST_F(TraceFileAttack, AFifoHoldsNobodyUp) {
    ASSERT_EQ(::mkfifo(TraceLog::path().c_str(), 0666), 0);
    makeLine();
    EXPECT_TRUE(fs::is_fifo(TraceLog::path()));
}

TEST_F(TraceFileAttack, AFileOfAnotherUserIsSharedOnlyIfItIsOpenToAll) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file to somebody else";
    }
    std::ofstream(TraceLog::path()) << "theirs\n";
    if (::chown(TraceLog::path().c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    ASSERT_EQ(::chmod(TraceLog::path().c_str(), 0600), 0);
    makeLine();
    EXPECT_EQ(readFile(TraceLog::path()), "theirs\n");
    struct stat status {};
    ASSERT_EQ(::stat(TraceLog::path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0600u);
}

TEST_F(TraceFileAttack, AFileOfAnotherUserThatIsOpenToAllIsTheDaysLog) {
    std::ofstream(TraceLog::path()) << "theirs\n";
    ASSERT_EQ(::chmod(TraceLog::path().c_str(), 0666), 0);
    makeLine();
    EXPECT_THAT(readFile(TraceLog::path()), HasSubstr("deleting value"));
}
