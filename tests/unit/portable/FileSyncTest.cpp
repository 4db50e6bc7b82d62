// Bringing files and names to the disk. That they are there only a power cut tells; here it is what the
// calls do and refuse.
#include "portable/FileSync.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "portable/FileDescriptor.h"
#include "support/ForkedChild.h"
#include "support/OtherUser.h"
#include "support/TempStore.h"
#include "support/TinyFileSystem.h"

namespace fs = std::filesystem;
using namespace VQRegLib;

namespace {

class FileSync : public testing::Test {
protected:
    vqtest::TempStore store;
    const std::string copy = store.path() + ".copy";
};

}  // namespace

TEST_F(FileSync, AFileAndItsDirectoryCanBeBroughtToTheDisk) {
    store.write("text");
    const CFileDescriptor file(::open(store.path().c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(sendData(file.get()), 0);
    EXPECT_EQ(syncDescriptor(file.get()), 0);
    EXPECT_EQ(syncDirectoryOf(store.path().c_str()), 0);
    EXPECT_EQ(syncDirectoryOf("/etc"), 0) << "which lies in the root directory";
    EXPECT_EQ(syncDirectoryOf("relative"), 0);
}

TEST_F(FileSync, WhatCannotBeBroughtThereIsTold) {
    EXPECT_EQ(sendData(-1), 0) << "not the disk's error";
    EXPECT_EQ(syncDescriptor(-1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(syncDirectoryOf((store.path() + "/none/file").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileSync, ADirectoryThatMayNotBeReadIsBroughtThereAllTheSame) {
    constexpr int kNoOther = 2;
    store.write("text");
    fs::permissions(store.path(), fs::perms(0666));
    const std::string directory = fs::path(store.path()).parent_path();
    fs::permissions(directory, fs::perms(0733));
    vqtest::ForkedChild child([&] {
        if (::setgid(vqtest::kNobody) != 0 || ::setuid(vqtest::kNobody) != 0) {
            return kNoOther;
        }
        const bool isUnreadable = ::open(directory.c_str(), O_RDONLY | O_CLOEXEC) < 0;
        return isUnreadable && syncDirectoryOf(store.path().c_str()) == 0 ? 0 : 1;
    });
    const int status = child.wait();
    if (status == kNoOther) {
        GTEST_SKIP() << "a process may not become another user here";
    }
    EXPECT_EQ(status, 0);
}

TEST_F(FileSync, ACopyHasTheText) {
    const std::string text(100'000, 'x');
    store.write(text);
    errno = EINTR;  // of something before, which the end of the text does not touch
    EXPECT_EQ(copyToDisk(store.path().c_str(), copy.c_str()), 0);
    std::ifstream in(copy);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), text);
}

TEST_F(FileSync, ACopyTakesNobodysPlaceAndIsMadeOfRegularFilesOnly) {
    store.write("text");
    std::ofstream(copy) << "other";
    EXPECT_EQ(copyToDisk(store.path().c_str(), copy.c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
    fs::remove(copy);
    EXPECT_EQ(copyToDisk(fs::path(store.path()).parent_path().c_str(), copy.c_str()), -1);
    EXPECT_EQ(errno, EINVAL);
    const std::string link = store.path() + ".link";
    fs::create_symlink(store.path(), link);
    EXPECT_EQ(copyToDisk(link.c_str(), copy.c_str()), -1);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(fs::exists(copy));
}

TEST_F(FileSync, ACopyForWhichThereIsNoRoomIsNotLeftLyingAbout) {
    store.write(std::string(2'000'000, 'x'));
    const std::string directory = store.path() + ".d";
    fs::create_directory(directory);
    const vqtest::TinyFileSystem tiny(directory, "size=64k");
    const std::string target = directory + "/copy";
    EXPECT_EQ(copyToDisk(store.path().c_str(), target.c_str()), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(fs::exists(target));
}
