// The file behind a mutex: its name, its mode, and which files are no mutex.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "portable/Mutex.h"
#include "portable/SharedObject.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/TinyFileSystem.h"

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::SizeIs;
using VQRegLib::CPMutex;
using VQRegLib::CSharedObject;
using vqtest::ForkedChild;

namespace {

std::string objectPath(const std::string& path) {
    return std::string(CSharedObject::directory()) + "/" +
           CSharedObject::nameForPath("CPMutex", path);
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
    // What a fresh mutex of this machine looks like.
    std::string goodContent() {
        const std::string model = m_store.directory() + "/model";
        EXPECT_EQ(errorOf(model), 0);
        return vqtest::readFile(objectPath(model));
    }

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

TEST_F(MutexObject, AFileOfAnotherSizeIsRefused) {
    const std::string good = goodContent();
    for (const std::string& content : {std::string(), good.substr(1), good + '\0'}) {
        put(m_object, content);
        EXPECT_NE(errorOf(m_path), 0) << content.size();
        EXPECT_EQ(vqtest::readFile(m_object), content);
    }
}

TEST_F(MutexObject, AFileOfAnotherFormIsRefused) {
    const std::string good = goodContent();
    put(m_object, std::string(good.size(), '\0'));
    EXPECT_NE(errorOf(m_path), 0);
    for (std::size_t at = 0; at < 24; ++at) {  // the tag
        std::string content = good;
        content[at] = static_cast<char>(content[at] + 1);
        put(m_object, content);
        EXPECT_NE(errorOf(m_path), 0) << at;
        EXPECT_EQ(vqtest::readFile(m_object), content);
    }
    put(m_object, good);
    EXPECT_EQ(errorOf(m_path), 0);
}

TEST_F(MutexObject, ALinkIsRefused) {
    const std::string target = m_store.directory() + "/target";
    put(target, goodContent());
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
