// A signal comes, or the system refuses, while a file is brought to the disk or its directory is watched. In
// an executable of its own, because it replaces the calls that fail.
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>

#include "portable/FileNews.h"
#include "portable/FileOps.h"
#include "portable/FileSync.h"
#include "support/TempStore.h"

namespace fs = std::filesystem;
using namespace VQRegLib;

namespace {

std::string_view g_function;  // that fails so many times, with that errno
int g_times = 0;
int g_error = 0;
int g_readings = 0;

bool failsNow(std::string_view function) {
    if (g_function != function || g_times == 0) {
        return false;
    }
    --g_times;
    errno = g_error;
    return true;
}

class DiskCalls : public testing::Test {
protected:
    DiskCalls() { store.write(text); }
    ~DiskCalls() override { fail("", 0, 0); }

    static void fail(std::string_view function, int error, int times) {
        g_function = function;
        g_error = error;
        g_times = times;
    }

    const std::string text = std::string(10'000, 'x');
    vqtest::TempStore store;
    const std::string copy = store.path() + ".copy";
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
ssize_t __real_read(int fd, void* data, size_t size);
ssize_t __wrap_read(int fd, void* data, size_t size);
ssize_t __wrap_read(int fd, void* data, size_t size) {
    ++g_readings;
    return failsNow("read") ? -1 : __real_read(fd, data, size);
}

ssize_t __real_write(int fd, const void* data, size_t size);
ssize_t __wrap_write(int fd, const void* data, size_t size);
ssize_t __wrap_write(int fd, const void* data, size_t size) {
    return !failsNow("write") ? __real_write(fd, data, size) : g_error == 0 ? 0 : -1;
}

int __real_fdatasync(int fd);
int __wrap_fdatasync(int fd);
int __wrap_fdatasync(int fd) {
    return failsNow("fdatasync") ? -1 : __real_fdatasync(fd);
}

int __real_sync_file_range(int fd, off_t from, off_t size, unsigned flags);
int __wrap_sync_file_range(int fd, off_t from, off_t size, unsigned flags);
int __wrap_sync_file_range(int fd, off_t from, off_t size, unsigned flags) {
    return failsNow("sync_file_range") ? -1 : __real_sync_file_range(fd, from, size, flags);
}

int __real_inotify_add_watch(int fd, const char* path, uint32_t mask);
int __wrap_inotify_add_watch(int fd, const char* path, uint32_t mask);
int __wrap_inotify_add_watch(int fd, const char* path, uint32_t mask) {
    return failsNow("inotify_add_watch") ? -1 : __real_inotify_add_watch(fd, path, mask);
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(DiskCalls, ACopyIsWholeAfterSignals) {
    for (const char* const function : {"read", "write", "fdatasync"}) {
        fail(function, EINTR, 3);
        EXPECT_EQ(copyToDisk(store.path().c_str(), copy.c_str()), 0) << function;
        EXPECT_EQ(g_times, 0) << function;
        EXPECT_EQ(vqtest::readFile(copy), text) << function;
        fs::remove(copy);
    }
}

TEST_F(DiskCalls, AReadingIsWholeAfterSignalsAndSaysWhyItIsNot) {
    std::string read(text.size() + 10, '\0');
    COpenFile file = CFileOps::current().openForReading(store.path().c_str());
    fail("read", EINTR, 3);
    EXPECT_EQ(CFileOps::current().read(read.data(), read.size(), file), text.size());
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(g_times, 0);
    EXPECT_EQ(read.substr(0, text.size()), text);
    file.rewind();
    fail("read", EIO, 1);
    EXPECT_EQ(CFileOps::current().read(read.data(), read.size(), file), 0u);
    EXPECT_EQ(errno, EIO);
}

// Its size was seen when it was opened.
TEST_F(DiskCalls, AFileThatStaysAsItIsIsReadWithOneCall) {
    std::string read(text.size() + 10, '\0');
    COpenFile file = CFileOps::current().openForReading(store.path().c_str());
    for (int turn = 1; turn <= 2; ++turn) {
        const int before = g_readings;
        EXPECT_EQ(CFileOps::current().read(read.data(), read.size(), file), text.size());
        EXPECT_EQ(g_readings - before, 1) << turn;
        file.rewind();
    }
}

TEST_F(DiskCalls, ACopyThatFailsIsNotLeftLyingAbout) {
    for (const char* const function : {"read", "write", "fdatasync"}) {
        fail(function, EDQUOT, 1);
        EXPECT_EQ(copyToDisk(store.path().c_str(), copy.c_str()), -1) << function;
        EXPECT_EQ(errno, EDQUOT) << function;
        EXPECT_FALSE(fs::exists(copy)) << function;
    }
    fail("write", 0, 1);
    EXPECT_EQ(copyToDisk(store.path().c_str(), copy.c_str()), -1) << "nothing is taken";
    EXPECT_EQ(errno, EIO);
    EXPECT_FALSE(fs::exists(copy));
}

TEST_F(DiskCalls, OnlyAnErrorOfTheDiskSaysThatDataAreNotThere) {
    for (const int error : {EIO, ENOSPC, EDQUOT}) {
        fail("sync_file_range", error, 1);
        EXPECT_EQ(sendData(STDIN_FILENO), -1) << error;
    }
    for (const int error : {ENOSYS, EPERM}) {
        fail("sync_file_range", error, 1);
        EXPECT_EQ(sendData(STDIN_FILENO), 0) << error;
    }
}

TEST_F(DiskCalls, NewsComeFromTheDirectoryThatIsWatchedWhenNoOtherMayBe) {
    CFileNews news;
    ASSERT_EQ(news.open(store.path()), 0);
    for (const int error : {ENOSPC, EACCES}) {
        store.write("changed\n");
        fail("inotify_add_watch", error, 1);
        EXPECT_TRUE(news.take()) << error;
        EXPECT_FALSE(news.isBlind()) << error;
        EXPECT_EQ(g_times, 0) << error;
    }
}

TEST_F(DiskCalls, ADirectoryThatMovesAwayWhileNoOtherMayBeWatchedIsFoundAgain) {
    CFileNews news;
    ASSERT_EQ(news.open(store.path()), 0);
    const std::string away = store.directory() + "-away";
    fs::rename(store.directory(), away);
    fs::create_directory(store.directory());
    fail("inotify_add_watch", ENOSPC, 2);
    EXPECT_FALSE(news.take());
    EXPECT_TRUE(news.isBlind());
    fail("", 0, 0);
    EXPECT_TRUE(news.take()) << "whatever is there now";
    fs::rename(store.directory(), store.directory() + "-second");
    fs::create_directory(store.directory());
    fail("inotify_add_watch", ENOSPC, 1);
    EXPECT_TRUE(news.take()) << "within one look";
    EXPECT_FALSE(news.isBlind());
    fs::remove_all(away);
    fs::remove_all(store.directory() + "-second");
}
