#include "portable/AppendedFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/ForkedChild.h"
#include "support/TempStore.h"

using VQRegLib::CAppendedFile;
using vqtest::readFile;

namespace fs = std::filesystem;

namespace {

class AppendedFile : public testing::Test {
protected:
    void TearDown() override {
        if (m_file) {
            std::fclose(m_file);
        }
    }

    std::string pathOf(const char* name) const { return m_place.directory() + "/" + name; }

    std::FILE* open(const char* name) const { return CAppendedFile::open(pathOf(name).c_str()); }

    void openAndRemember() {
        m_file = open("log");
        ASSERT_NE(m_file, nullptr);
        m_opened.remember(m_file);
    }

    vqtest::TempStore m_place;
    CAppendedFile m_opened;
    std::FILE* m_file = nullptr;
};

}  // namespace

TEST_F(AppendedFile, IsMadeForEverybodyAndKeepsWhatItHas) {
    const mode_t mask = ::umask(0077);
    openAndRemember();
    ::umask(mask);
    std::fputs("one\n", m_file);
    std::FILE* const again = open("log");
    ASSERT_NE(again, nullptr);
    std::fputs("two\n", again);
    std::fclose(again);
    EXPECT_EQ(readFile(pathOf("log")), "one\ntwo\n");
    EXPECT_EQ(fs::status(pathOf("log")).permissions(), static_cast<fs::perms>(0666));
    EXPECT_NE(fcntl(fileno(m_file), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(AppendedFile, IsNoLinkNoFifoAndHasOneName) {
    std::ofstream(pathOf("other")) << "other";
    fs::create_symlink(pathOf("other"), pathOf("link"));
    EXPECT_EQ(open("link"), nullptr);
    fs::create_hard_link(pathOf("other"), pathOf("second"));
    EXPECT_EQ(open("second"), nullptr);
    ASSERT_EQ(::mkfifo(pathOf("fifo").c_str(), 0666), 0);
    EXPECT_EQ(open("fifo"), nullptr);
    EXPECT_EQ(open("missing/log"), nullptr);
}

TEST_F(AppendedFile, ThatAUserHasMadeIsForEverybodyToo) {
    fs::permissions(m_place.directory(), fs::perms::all);
    vqtest::ForkedChild child([&] {
        if (::seteuid(65534) != 0) {
            return 77;  // one who has nobody else to be
        }
        ::umask(0077);
        const bool isMade = open("log") != nullptr;
        return ::seteuid(0) == 0 && isMade ? 0 : 1;
    });
    const int status = child.wait();
    if (status == 77) {
        GTEST_SKIP() << "only root can be another user";
    }
    EXPECT_EQ(status, 0);
    struct stat log {};
    ASSERT_EQ(::stat(pathOf("log").c_str(), &log), 0);
    EXPECT_EQ(log.st_uid, 65534u);
    EXPECT_EQ(log.st_mode & 07777u, 0666u);
}

TEST_F(AppendedFile, OfAnotherUserMustBeOpenToEverybodyAndStaysAsItIs) {
    std::ofstream(pathOf("log")) << "of another\n";
    if (::chown(pathOf("log").c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    for (const mode_t mode : {0644u, 0600u, 0626u}) {
        ASSERT_EQ(::chmod(pathOf("log").c_str(), mode), 0);
        EXPECT_EQ(open("log"), nullptr) << mode;
    }
    ASSERT_EQ(::chmod(pathOf("log").c_str(), 0677), 0);
    std::FILE* const file = open("log");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    EXPECT_EQ(fs::status(pathOf("log")).permissions(), static_cast<fs::perms>(0677));
}

TEST_F(AppendedFile, TakesThePlaceOfAnotherUnderItsDescriptor) {
    openAndRemember();
    const int descriptor = fileno(m_file);
    std::FILE* const next = open("next");
    ASSERT_NE(next, nullptr);
    EXPECT_FALSE(m_opened.isThereFor(next));
    ASSERT_TRUE(m_opened.replaceBy(next));
    EXPECT_EQ(fileno(m_file), descriptor);
    EXPECT_TRUE(m_opened.isThereFor(m_file));
    std::fputs("line\n", m_file);
    EXPECT_EQ(readFile(pathOf("next")), "line\n");
    EXPECT_EQ(readFile(pathOf("log")), "");
    EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(AppendedFile, IsNotThereWhenItsNumberIsAnothersNow) {
    EXPECT_FALSE(m_opened.isThere());
    openAndRemember();
    EXPECT_TRUE(m_opened.isThere());
    std::FILE* const other = open("other");
    ASSERT_NE(other, nullptr);
    ASSERT_EQ(::dup2(fileno(other), fileno(m_file)), fileno(m_file));
    EXPECT_FALSE(m_opened.isThere());
    EXPECT_FALSE(m_opened.isThereFor(m_file));
    std::fclose(other);
    std::FILE* const device = std::fopen("/dev/null", "w");
    ASSERT_EQ(::dup2(fileno(device), fileno(m_file)), fileno(m_file));
    EXPECT_FALSE(m_opened.isThere()) << "another disk's may have the same number";
    std::fclose(device);
}
