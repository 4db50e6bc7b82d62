#include "portable/FileOps.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

#include "portable/FileDescriptor.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/TinyFileSystem.h"
#include "support/Wait.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::CFileOps;

namespace {

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777u;
}

#if defined(__alpha__)
constexpr unsigned kFchmodat2 = 562;
#else
constexpr unsigned kFchmodat2 = 452;
#endif

// From now on the system call fails with that error in this process.
bool forbid(unsigned number, int error) {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{4, filter};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool isClosedOnExec(std::FILE* file) {
    return (fcntl(fileno(file), F_GETFD) & FD_CLOEXEC) != 0;
}

class FileOps : public testing::Test {
protected:
    void expectUnreadable(const std::string& path, int error) {
        errno = 0;
        EXPECT_EQ(m_ops.openForReading(path.c_str()), nullptr) << path;
        EXPECT_EQ(errno, error) << path;
    }

    void expectNotCreated(const std::string& path, std::uint64_t size, int error) {
        errno = 0;
        EXPECT_EQ(m_ops.createForWriting(path.c_str(), size), nullptr) << path;
        EXPECT_EQ(errno, error) << path;
    }

    vqtest::TempStore m_store;
    const std::string m_path = m_store.path();
    CFileOps& m_ops = CFileOps::current();
};

}  // namespace

TEST_F(FileOps, ReadsAFile) {
    m_store.write("text\n");
    std::FILE* const file = m_ops.openForReading(m_path.c_str());
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(isClosedOnExec(file));
    char buffer[16] = {};
    EXPECT_EQ(m_ops.read(buffer, 2, file), 2u);
    EXPECT_EQ(lseek(fileno(file), 0, SEEK_CUR), 2) << "the file must not be buffered";
    EXPECT_EQ(m_ops.read(buffer + 2, sizeof buffer - 2, file), 3u);
    EXPECT_STREQ(buffer, "text\n");
    EXPECT_EQ(m_ops.close(file), 0);
}

TEST_F(FileOps, DoesNotReadThroughALink) {
    m_store.write("x");
    fs::create_symlink(m_path, m_path + ".link");
    expectUnreadable(m_path + ".link", ELOOP);
}

TEST_F(FileOps, OpensAFileToEverybodyByItsPathAndWhenItIsOpen) {
    m_store.write("x");
    ASSERT_EQ(::chmod(m_path.c_str(), 0), 0);
    EXPECT_EQ(m_ops.makeWritableForAll(m_path.c_str(), nullptr), 0);
    EXPECT_EQ(modeOf(m_path), 0666u);
    ASSERT_EQ(::chmod(m_path.c_str(), 0600), 0);
    std::FILE* const file = m_ops.openForReading(m_path.c_str());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(m_ops.makeWritableForAll(file), 0);
    EXPECT_EQ(m_ops.close(file), 0);
    EXPECT_EQ(modeOf(m_path), 0666u);
}

// As on a kernel, or in a sandbox, that does not know fchmodat2.
TEST_F(FileOps, OpensAFileToEverybodyOnAnOldKernel) {
    m_store.write("x");
    for (const int error : {ENOSYS, EPERM}) {
        ASSERT_EQ(::chmod(m_path.c_str(), 0), 0);
        vqtest::ForkedChild child([&] {
            return forbid(kFchmodat2, error) &&
                           m_ops.makeWritableForAll(m_path.c_str(), nullptr) == 0
                       ? 0
                       : 1;
        });
        EXPECT_EQ(child.wait(), 0);
        EXPECT_EQ(modeOf(m_path), 0666u);
    }
}

TEST_F(FileOps, AFileThatIsOpenToEverybodyIsNotTouched) {
    m_store.write("x");
    EXPECT_EQ(m_ops.makeWritableForAll(m_path.c_str(), nullptr), 0);
    struct stat before {};
    ASSERT_EQ(::stat(m_path.c_str(), &before), 0);
    const auto isLater = [&] {
        std::ofstream(m_path + ".other") << "y";
        struct stat now {};
        return ::stat((m_path + ".other").c_str(), &now) == 0 &&
               (now.st_ctim.tv_sec != before.st_ctim.tv_sec ||
                now.st_ctim.tv_nsec != before.st_ctim.tv_nsec);
    };
    ASSERT_TRUE(vqtest::waitUntil(isLater));
    EXPECT_EQ(m_ops.makeWritableForAll(m_path.c_str(), nullptr), 0);
    struct stat after {};
    ASSERT_EQ(::stat(m_path.c_str(), &after), 0);
    EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_F(FileOps, TellsWhetherAFileThatItOpensToEverybodyHoldsAText) {
    bool holdsText = false;
    m_store.write("x");
    EXPECT_EQ(m_ops.makeWritableForAll(m_path.c_str(), &holdsText), 0);
    EXPECT_TRUE(holdsText);
    m_store.write("");
    EXPECT_EQ(m_ops.makeWritableForAll(m_path.c_str(), &holdsText), 0);
    EXPECT_FALSE(holdsText);
}

TEST_F(FileOps, OpensToEverybodyNothingButAFile) {
    const std::string secret = m_path + ".secret";
    std::ofstream(secret) << "x";
    ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
    fs::create_symlink(secret, m_path);
    EXPECT_EQ(m_ops.makeWritableForAll(m_path.c_str(), nullptr), -1);
    EXPECT_EQ(modeOf(secret), 0600u);
    const std::string directory = m_path + ".d";
    ASSERT_EQ(::mkdir(directory.c_str(), 0700), 0);
    EXPECT_EQ(m_ops.makeWritableForAll(directory.c_str(), nullptr), -1);
    EXPECT_EQ(modeOf(directory), 0700u);
    const std::string fifo = m_path + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(m_ops.makeWritableForAll(fifo.c_str(), nullptr), -1);
    EXPECT_EQ(modeOf(fifo), 0600u);
    EXPECT_EQ(m_ops.makeWritableForAll((m_path + ".none").c_str(), nullptr), -1);
}

TEST_F(FileOps, ExchangesTheNamesOfTwoFiles) {
    m_store.write("one");
    const std::string other = m_path + ".other";
    std::ofstream(other) << "two";
    EXPECT_EQ(m_ops.exchange(other.c_str(), m_path.c_str()), 0);
    EXPECT_EQ(m_store.read(), "two");
    EXPECT_EQ(vqtest::readFile(other), "one");
    EXPECT_EQ(m_ops.exchange((m_path + ".none").c_str(), m_path.c_str()), -1);
    EXPECT_EQ(m_store.read(), "two");
}

TEST_F(FileOps, KnowsWhatHoldsAText) {
    EXPECT_FALSE(m_ops.holdsText(m_path.c_str()));
    m_store.write("");
    EXPECT_FALSE(m_ops.holdsText(m_path.c_str()));
    m_store.write("x");
    EXPECT_TRUE(m_ops.holdsText(m_path.c_str()));
    EXPECT_FALSE(m_ops.holdsText(m_store.directory().c_str()));
    fs::create_symlink(m_path, m_path + ".link");
    EXPECT_FALSE(m_ops.holdsText((m_path + ".link").c_str()));
}

TEST_F(FileOps, DoesNotReadWhatIsMissing) {
    expectUnreadable(m_path, ENOENT);
    expectUnreadable(m_path + "/below", ENOENT);
    m_store.write("");
    expectUnreadable(m_path + "/below", ENOTDIR);
}

TEST_F(FileOps, DoesNotReadADirectory) {
    expectUnreadable(m_store.directory(), EISDIR);
}

TEST_F(FileOps, DoesNotWaitForAFifo) {
    ASSERT_EQ(mkfifo(m_path.c_str(), 0666), 0);
    expectUnreadable(m_path, EINVAL);
}

TEST_F(FileOps, DoesNotReadADevice) {
    expectUnreadable("/dev/null", EINVAL);
    expectUnreadable("/dev/zero", EINVAL);
}

TEST_F(FileOps, DoesNotReadASocket) {
    const VQRegLib::CFileDescriptor end(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(m_path.size(), sizeof address.sun_path);
    m_path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(end.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(m_ops.openForReading(m_path.c_str()), nullptr);
}

TEST_F(FileOps, ARefusedFileIsNotLeftOpen) {
    const int before = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(before);
    m_ops.openForReading(m_store.directory().c_str());
    m_ops.openForReading("/dev/null");
    m_ops.openForReading(m_path.c_str());
    const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(FileOps, CreatesAFile) {
    const mode_t old = umask(027);
    std::FILE* const file = m_ops.createForWriting(m_path.c_str(), 100);
    umask(old);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(isClosedOnExec(file));
    EXPECT_EQ(modeOf(m_path), 0640u);
    EXPECT_EQ(m_store.read(), "");
    EXPECT_EQ(m_ops.write("text", 4, file), 4u);
    EXPECT_EQ(m_store.read(), "text") << "the file must not be buffered";
    EXPECT_EQ(m_ops.flush(file), 0);
    EXPECT_EQ(m_ops.close(file), 0);
}

TEST_F(FileOps, CreatesAFileForAllWithoutAnUmask) {
    const mode_t old = umask(0);
    std::FILE* const file = m_ops.createForWriting(m_path.c_str(), 0);
    umask(old);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(modeOf(m_path), 0666u);
    EXPECT_EQ(m_ops.close(file), 0);
}

TEST_F(FileOps, NeverTakesOverWhatExists) {
    m_store.write("old");
    expectNotCreated(m_path, 0, EEXIST);
    EXPECT_EQ(m_store.read(), "old");
    const std::string target = m_store.directory() + "/target";
    const std::string link = m_store.directory() + "/link";
    fs::create_symlink(target, link);
    expectNotCreated(link, 0, EEXIST);
    EXPECT_FALSE(fs::exists(target));
    const std::string fifo = m_store.directory() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    expectNotCreated(fifo, 0, EEXIST);
}

TEST_F(FileOps, CreatesNothingWhereThereIsNoDirectory) {
    expectNotCreated(m_store.directory() + "/missing/file", 0, ENOENT);
}

TEST_F(FileOps, CreatesNothingWithoutRoom) {
    const vqtest::TinyFileSystem small(m_store.directory(), "size=64k");
    expectNotCreated(m_path, 65537, ENOSPC);
    expectNotCreated(m_path, std::uint64_t{1} << 40, ENOSPC);
    EXPECT_THAT(m_store.files(), IsEmpty());
    std::FILE* const file = m_ops.createForWriting(m_path.c_str(), 30000);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(m_ops.close(file), 0);
}

TEST_F(FileOps, CreatesNothingOnAFullDisk) {
    const vqtest::TinyFileSystem full(m_store.directory(), "size=64k");
    full.fill();
    expectNotCreated(m_path, 1, ENOSPC);
    EXPECT_THAT(m_store.files(), ElementsAre("filling"));
}

TEST_F(FileOps, WhatItPromisedFits) {
    const vqtest::TinyFileSystem small(m_store.directory(), "size=64k");
    std::size_t size = 65536;
    std::FILE* file = nullptr;
    while (!file && size > 0) {
        file = m_ops.createForWriting(m_path.c_str(), --size);
    }
    ASSERT_NE(file, nullptr);
    const std::string text(size, 'x');
    EXPECT_EQ(m_ops.write(text.data(), text.size(), file), text.size());
    EXPECT_EQ(m_ops.flush(file), 0);
    EXPECT_EQ(m_ops.close(file), 0);
    EXPECT_GT(size, 32768u);
}

TEST_F(FileOps, CreatesNothingOnAReadOnlyDisk) {
    const vqtest::TinyFileSystem place(m_store.directory(), "size=64k");
    place.makeReadOnly();
    expectNotCreated(m_path, 1, EROFS);
}

TEST_F(FileOps, AFailedWriteIsSeen) {
    std::FILE* const file = std::fopen("/dev/full", "w");
    ASSERT_NE(file, nullptr);
    std::setvbuf(file, nullptr, _IONBF, 0);
    errno = 0;
    EXPECT_LT(m_ops.write("text", 4, file), 4u);
    EXPECT_EQ(errno, ENOSPC);
    std::fclose(file);
    std::FILE* const buffered = std::fopen("/dev/full", "w");
    ASSERT_NE(buffered, nullptr);
    EXPECT_EQ(m_ops.write("text", 4, buffered), 4u);
    errno = 0;
    EXPECT_EQ(m_ops.flush(buffered), EOF);
    EXPECT_EQ(errno, ENOSPC);
    m_ops.write("text", 4, buffered);
    EXPECT_EQ(m_ops.close(buffered), EOF);
}

TEST_F(FileOps, OpensAFileToEverybody) {
    m_store.write("");
    fs::permissions(m_path, fs::perms::owner_read);
    EXPECT_EQ(m_ops.makeWritableForAll(m_path.c_str(), nullptr), 0);
    EXPECT_EQ(modeOf(m_path), 0666u);
    EXPECT_EQ(m_ops.makeWritableForAll((m_path + "2").c_str(), nullptr), -1);
}

TEST_F(FileOps, LinksRenamesAndRemoves) {
    const std::string other = m_path + ".bak";
    m_store.write("one");
    EXPECT_EQ(m_ops.link(m_path.c_str(), other.c_str()), 0);
    EXPECT_EQ(vqtest::readFile(other), "one");
    EXPECT_EQ(m_ops.link(m_path.c_str(), other.c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(m_ops.unlink(m_path.c_str()), 0);
    EXPECT_FALSE(m_ops.exists(m_path.c_str()));
    EXPECT_TRUE(m_ops.exists(other.c_str()));
    m_store.write("two");
    EXPECT_EQ(m_ops.rename(m_path.c_str(), other.c_str()), 0);
    EXPECT_EQ(vqtest::readFile(other), "two");
    EXPECT_EQ(m_ops.unlink(m_path.c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileOps, KnowsWhatExists) {
    EXPECT_FALSE(m_ops.exists(m_path.c_str()));
    EXPECT_TRUE(m_ops.exists(m_store.directory().c_str()));
    fs::create_symlink("nowhere", m_path);
    EXPECT_FALSE(m_ops.exists(m_path.c_str()));
}

TEST_F(FileOps, CanBeReplacedAndBroughtBack) {
    struct Blind : CFileOps {
        bool exists(const char*) override { return false; }
    } blind;
    CFileOps::replace(&blind);
    EXPECT_EQ(&CFileOps::current(), &blind);
    EXPECT_FALSE(CFileOps::current().exists("/"));
    CFileOps::replace(nullptr);
    EXPECT_EQ(&CFileOps::current(), &m_ops);
    EXPECT_TRUE(CFileOps::current().exists("/"));
}

TEST(FileDescriptor, ClosesWhatItOwns) {
    int fd = -1;
    {
        const VQRegLib::CFileDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_TRUE(file.isOpen());
        fd = file.get();
        EXPECT_GE(fcntl(fd, F_GETFD), 0);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_FALSE(VQRegLib::CFileDescriptor(-1).isOpen());
}

TEST(FileDescriptor, KeepsOpenWhatItHasReleased) {
    int fd = -1;
    {
        VQRegLib::CFileDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        fd = file.release();
        EXPECT_FALSE(file.isOpen());
    }
    EXPECT_GE(fcntl(fd, F_GETFD), 0);
    close(fd);
}
