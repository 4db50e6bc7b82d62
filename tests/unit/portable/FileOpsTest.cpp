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
#include <utility>

#include "portable/FileDescriptor.h"
#include "support/ForkedChild.h"
#include "support/Wait.h"
#include "unit/portable/FileOpsFixture.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::CFileOps;
using VQRegLib::COpenFile;
using vqtest::isClosedOnExec;
using vqtest::modeOf;

namespace {

#if defined(__alpha__)
constexpr unsigned kFchmodat2 = 562;
#else
constexpr unsigned kFchmodat2 = 452;
#endif

class FileOps : public vqtest::FileOpsFixture {};

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

}  // namespace

TEST_F(FileOps, ReadsAFile) {
    m_store.write("text\n");
    COpenFile file = m_ops.openForReading(m_path.c_str());
    ASSERT_TRUE(file);
    EXPECT_TRUE(isClosedOnExec(file));
    char buffer[16] = {};
    EXPECT_EQ(m_ops.read(buffer, 2, file), 2u);
    EXPECT_EQ(lseek(file.descriptor(), 0, SEEK_CUR), 2) << "the file must not be buffered";
    EXPECT_EQ(m_ops.read(buffer + 2, sizeof buffer - 2, file), 3u);
    EXPECT_STREQ(buffer, "text\n");
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
}

TEST_F(FileOps, ReadsWhatHasComeSinceTheOpening) {
    m_store.write("one\n");
    COpenFile file = m_ops.openForReading(m_path.c_str());
    ASSERT_TRUE(file);
    std::ofstream(m_path, std::ios::app) << "two\n";
    char buffer[16] = {};
    EXPECT_EQ(m_ops.sizeOf(file), 4u);
    EXPECT_EQ(m_ops.read(buffer, sizeof buffer, file), 8u);
    EXPECT_EQ(errno, 0);
    EXPECT_STREQ(buffer, "one\ntwo\n");
    EXPECT_EQ(m_ops.sizeOf(file), 8u);
    file.rewind();
    EXPECT_EQ(m_ops.read(buffer, 4, file), 4u);
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
}

// Of a size that says nothing, as some file systems tell it.
TEST_F(FileOps, ReadsUntilThereIsNoMore) {
    const std::string status = vqtest::readFile("/proc/self/limits");
    COpenFile file = m_ops.openForReading("/proc/self/limits");
    ASSERT_TRUE(file);
    std::string text(status.size() + 100, '\0');
    EXPECT_EQ(m_ops.read(text.data(), text.size(), file), status.size());
    EXPECT_EQ(errno, 0);
    text.resize(status.size());
    EXPECT_EQ(text, status);
}

TEST_F(FileOps, SaysWhyAReadingEnded) {
    m_store.write("text\n");
    COpenFile file = m_ops.openForReading(m_path.c_str());
    ASSERT_TRUE(file);
    EXPECT_EQ(m_ops.read(nullptr, 8, file), 0u);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
}

TEST_F(FileOps, AClosingThatFailsIsSeen) {
    m_store.write("");
    COpenFile file = m_ops.openForReading(m_path.c_str());
    ASSERT_TRUE(file);
    ASSERT_EQ(::close(file.descriptor()), 0);
    EXPECT_EQ(m_ops.close(std::move(file)), -1);
    EXPECT_EQ(errno, EBADF);
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
    COpenFile file = m_ops.openForReading(m_path.c_str());
    ASSERT_TRUE(file);
    EXPECT_EQ(m_ops.makeWritableForAll(file), 0);
    EXPECT_EQ(m_ops.close(std::move(file)), 0);
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
    EXPECT_FALSE(m_ops.openForReading(m_path.c_str()));
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

TEST_F(FileOps, ReadsTheTimeOfAFileInSecondsAndLeavesItAloneWithoutOne) {
    m_store.write("text");
    const timespec times[2] = {{1000, 0}, {2000, 999'999'999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, m_path.c_str(), times, 0), 0);
    fs::create_symlink(m_path, m_path + ".link");
    std::time_t seconds = 7;
    m_ops.readModificationTime((m_path + ".none").c_str(), seconds);
    EXPECT_EQ(seconds, 7);
    m_ops.readModificationTime((m_path + ".link").c_str(), seconds);
    EXPECT_EQ(seconds, 2000);
}
