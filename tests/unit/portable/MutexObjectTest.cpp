// The file behind a mutex: its name, its mode, and which files are no mutex.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "portable/Mutex.h"
#include "portable/ObjectName.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/Threads.h"
#include "support/TinyFileSystem.h"
#include "support/Wait.h"

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::SizeIs;
using VQRegLib::CPMutex;
using vqtest::ForkedChild;

namespace {

std::string objectPath(const std::string& path) {
    return VQRegLib::objectPath("CPLock", path);
}

void put(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// Whether the mutexes of two paths are one.
bool areOne(const std::string& path, const std::string& other) {
    CPMutex mutex(1, 0, path, 1, 1);
    EXPECT_TRUE(mutex.isOpen()) << path << ": " << mutex.error();
    EXPECT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    return ForkedChild([&] {
               CPMutex second(1, 0, other, 1, 1);
               return second.isOpen() ? second.wait(0, nullptr) : 100;
           }).wait() == CPMutex::eTimeout;
}

int errorOf(const std::string& path) {
    const CPMutex mutex(1, 0, path, 1, 1);
    EXPECT_EQ(mutex.isOpen(), mutex.error() == 0);
    return mutex.error();
}

class MutexObject : public testing::Test {
protected:
    vqtest::TempStore m_store;
    const std::string m_path = m_store.path();
    const std::string m_object = objectPath(m_path);
};

}  // namespace

TEST_F(MutexObject, DifferentSpellingsOfAPathAreOneMutex) {
    const std::string directory = m_store.directory();
    fs::create_directory(directory + "/sub");
    fs::create_directory_symlink(directory, directory + "/link");
    EXPECT_TRUE(areOne(m_path, directory + "//" + fs::path(m_path).filename().string()));
    EXPECT_TRUE(areOne(m_path, directory + "/./sub/../" + fs::path(m_path).filename().string()));
    EXPECT_TRUE(areOne(m_path, directory + "/link/" + fs::path(m_path).filename().string()));
    ASSERT_EQ(chdir(directory.c_str()), 0);
    EXPECT_TRUE(areOne(m_path, fs::path(m_path).filename().string()));
    EXPECT_TRUE(areOne(m_path, "sub/../" + fs::path(m_path).filename().string()));
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_THAT(m_store.sharedObjects(), SizeIs(1));
}

TEST_F(MutexObject, AFileInTheRootDirectoryHasOneMutexToo) {
    EXPECT_TRUE(areOne("/store.cfg", "/tmp/../store.cfg"));
}

TEST_F(MutexObject, DifferentPathsAreDifferentMutexes) {
    const std::string directory = m_store.directory();
    fs::create_directory(directory + "/a");
    EXPECT_FALSE(areOne(m_path, m_path + "2"));
    EXPECT_FALSE(areOne(directory + "/a/b", directory + "/a%2Fb"));
    EXPECT_FALSE(areOne(directory + "/a%b", directory + "/a%25b"));
    EXPECT_FALSE(areOne(directory + "/a/b", directory + "/a/B"));
}

TEST_F(MutexObject, LongPathsHaveMutexesOfTheirOwn) {
    std::string directory = m_store.directory();
    for (int level = 0; level < 3; ++level) {
        directory += "/" + std::string(200, 'd');
        fs::create_directory(directory);
    }
    const std::string one = directory + "/store.one";
    const std::string other = directory + "/store.two";
    EXPECT_TRUE(areOne(one, one));
    EXPECT_FALSE(areOne(one, other));
    EXPECT_THAT(m_store.sharedObjects(), SizeIs(2));
    fs::remove(objectPath(one));
    fs::remove(objectPath(other));
}

TEST_F(MutexObject, EverybodyMayUseItWhateverTheUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}, mode_t{0777}}) {
        const std::string path = m_path + std::to_string(mask);
        const mode_t old = umask(mask);
        EXPECT_EQ(errorOf(path), 0);
        umask(old);
        struct stat status {};
        ASSERT_EQ(stat(objectPath(path).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777u, 0666u);
        EXPECT_TRUE(S_ISREG(status.st_mode));
    }
}

TEST_F(MutexObject, IsKeptWhenTheLastUserGoes) {
    EXPECT_EQ(ForkedChild([this] { return errorOf(m_path); }).wait(), 0);
    EXPECT_TRUE(fs::exists(m_object));
    EXPECT_EQ(errorOf(m_path), 0);
}

TEST_F(MutexObject, WhatSomebodyWritesIntoItMakesNoDifference) {
    for (const std::string& content :
         {std::string(), std::string(3, 'x'), std::string(9999, 'y')}) {
        put(m_object, content);
        EXPECT_TRUE(areOne(m_path, m_path)) << content.size();
    }
    fs::resize_file(m_object, std::uintmax_t{1} << 30);
    EXPECT_TRUE(areOne(m_path, m_path));
}

TEST_F(MutexObject, KeepsANumberForTheNextHolder) {
    CPMutex mutex(1, 0, m_path, 1, 1);
    EXPECT_FALSE(mutex.putCounter({7, 8})) << "it is not held";
    EXPECT_EQ(mutex.counter().tag, 0u);
    ASSERT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex.counter().number, 0u);
    EXPECT_TRUE(mutex.putCounter({7, 8}));
    mutex.noteHolding();
    mutex.setMark(true);
    EXPECT_EQ(mutex.release(), 0);
    EXPECT_EQ(ForkedChild([this] {
                  CPMutex other(1, 0, m_path, 1, 1);
                  other.wait(0, nullptr);
                  const CPMutex::Counter counter = other.counter();
                  return counter.number == 7 && counter.tag == 8 && other.isMarked() ? 0 : 1;
              }).wait(),
              0);
    ASSERT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    fs::resize_file(m_object, 0);
    EXPECT_EQ(mutex.counter().number, 0u);
    EXPECT_TRUE(mutex.putCounter({9, 8})) << "it is cut short, and held";
    EXPECT_EQ(mutex.counter().number, 9u);
    fs::remove(m_object);
    EXPECT_FALSE(mutex.putCounter({10, 8})) << "the lock keeps nobody out";
    EXPECT_EQ(mutex.counter().number, 9u);
}

TEST_F(MutexObject, CutShortWhileItIsHeldItIsStillHeld) {
    CPMutex mutex(1, 0, m_path, 1, 1);
    ASSERT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    fs::resize_file(m_object, 0);
    const auto tryElsewhere = [&] {
        return ForkedChild([&] { return CPMutex(1, 0, m_path, 1, 1).wait(0, nullptr); }).wait();
    };
    EXPECT_EQ(tryElsewhere(), CPMutex::eTimeout);
    EXPECT_EQ(mutex.holder().pid, ::getpid());
    EXPECT_EQ(mutex.release(), 0);
    EXPECT_EQ(tryElsewhere(), CPMutex::eOwned);
}

TEST_F(MutexObject, RemovedWhileItIsFreeItIsMadeAgainByTheNext) {
    CPMutex old(1, 0, m_path, 1, 1);
    ASSERT_EQ(old.wait(0, nullptr), CPMutex::eOwned);
    ASSERT_EQ(old.release(), 0);
    fs::remove(m_object);
    ForkedChild other([&] {
        CPMutex mutex(1, 0, m_path, 1, 1);
        return mutex.wait(0, nullptr) == CPMutex::eOwned ? ::pause() : 1;
    });
    ASSERT_TRUE(vqtest::waitUntil([&] { return old.holder().pid == other.pid(); }));
    EXPECT_EQ(old.wait(0, nullptr), CPMutex::eTimeout) << "it must not be the one that was removed";
    other.kill();
    EXPECT_EQ(old.wait(0, nullptr), CPMutex::eOwned);
}

TEST_F(MutexObject, WhoWaitsWhileItIsRemovedTakesTheOneThatIsMadeAgain) {
    CPMutex mutex(1, 0, m_path, 1, 1);
    const int old = ::open(m_object.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(old, LOCK_EX), 0);
    {
        vqtest::CallElsewhere waiting([&] {
            EXPECT_EQ(mutex.wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
            EXPECT_TRUE(mutex.isStillHeld());
            EXPECT_EQ(mutex.release(), 0);
        });
        EXPECT_TRUE(waiting.waits());
        fs::remove(m_object);
        ::flock(old, LOCK_UN);
        EXPECT_TRUE(waiting.returns());
    }
    EXPECT_TRUE(fs::exists(m_object));
    EXPECT_EQ(::flock(old, LOCK_EX | LOCK_NB), 0) << "the removed one is still held";
    ::close(old);
}

TEST_F(MutexObject, ItsDescriptorMayBeClosedByTheProgramAndBecomeAnotherFile) {
    CPMutex mutex(1, 0, m_path, 1, 1);
    ASSERT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    EXPECT_TRUE(mutex.isStillHeld());
    ::closefrom(3);
    EXPECT_FALSE(mutex.isStillHeld());
    const std::string stranger = m_store.directory() + "/stranger";
    std::vector<int> descriptors;
    for (int i = 0; i < 10; ++i) {
        descriptors.push_back(::open(stranger.c_str(), O_RDWR | O_CREAT, 0666));
        ASSERT_EQ(::flock(descriptors.back(), LOCK_SH), 0);
    }
    EXPECT_FALSE(mutex.isStillHeld());
    mutex.noteHolding();
    EXPECT_EQ(fs::file_size(stranger), 0u) << "the program's own files stay as they are";
    EXPECT_EQ(mutex.release(), 0);
    const int other = ::open(stranger.c_str(), O_RDWR);
    EXPECT_NE(::flock(other, LOCK_EX | LOCK_NB), 0) << "the program's own locks stay";
    EXPECT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    EXPECT_TRUE(mutex.isStillHeld());
    EXPECT_EQ(mutex.release(), 0);
    for (const int descriptor : descriptors) {
        EXPECT_EQ(::close(descriptor), 0) << "the program's own files stay open";
    }
    ::close(other);
}

TEST_F(MutexObject, ALinkIsRefused) {
    const std::string target = m_store.directory() + "/target";
    put(target, "");
    fs::create_symlink(target, m_object);
    EXPECT_EQ(errorOf(m_path), ELOOP);
    fs::remove(target);
    EXPECT_NE(errorOf(m_path), 0);  // one that leads nowhere
    EXPECT_FALSE(fs::exists(target));
}

TEST_F(MutexObject, AFifoIsRefusedWithoutWaiting) {
    ASSERT_EQ(mkfifo(m_object.c_str(), 0666), 0);
    EXPECT_NE(errorOf(m_path), 0);
    EXPECT_TRUE(fs::is_fifo(m_object));
}

TEST_F(MutexObject, ADirectoryIsRefused) {
    fs::create_directory(m_object);
    EXPECT_NE(errorOf(m_path), 0);
    fs::remove(m_object);
    EXPECT_EQ(errorOf(m_path), 0);  // nothing bad is remembered
}

TEST_F(MutexObject, NoRoomIsAnErrorAndLeavesNothing) {
    const vqtest::TinyFileSystem full("/dev/shm", "size=16k");
    full.fill();
    EXPECT_EQ(errorOf(m_path), ENOSPC);
    EXPECT_THAT(m_store.sharedObjects(), IsEmpty());
    fs::remove("/dev/shm/filling");
    EXPECT_EQ(errorOf(m_path), 0);
}

TEST_F(MutexObject, NoFreeFileIsAnErrorAndLeavesNothing) {
    const vqtest::TinyFileSystem full("/dev/shm", "size=64k,nr_inodes=1");
    EXPECT_NE(errorOf(m_path), 0);
    EXPECT_THAT(m_store.sharedObjects(), IsEmpty());
}

TEST_F(MutexObject, AReadOnlyPlaceIsAnError) {
    const vqtest::TinyFileSystem place("/dev/shm", "size=64k");
    place.makeReadOnly();
    EXPECT_EQ(errorOf(m_path), EROFS);
}

TEST_F(MutexObject, AMissingPlaceIsAnError) {
    const vqtest::TinyFileSystem place("/dev", "size=64k");
    EXPECT_EQ(errorOf(m_path), ENOENT);
}
