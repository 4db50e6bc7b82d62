// Listing the semaphores in use.
#include "portable/NamedObjects.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "portable/Semaphore.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::CNamesMark;
using VQRegLib::CPEnumNamedObjects;
using VQRegLib::CPSemaphore;

namespace {

class NamedObjects : public testing::Test {
protected:
    ~NamedObjects() override {
        for (const int fd : m_owners) {
            ::close(fd);
        }
        for (const std::string& file : m_files) {
            std::error_code ignored;
            fs::remove(file, ignored);
        }
    }

    // A semaphore that some process owns.
    void makeOwned(const std::string& name) {
        make(name);
        const int fd = ::open(("/dev/shm/sem." + name).c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(::flock(fd, LOCK_SH), 0);
        m_owners.push_back(fd);
    }

    void make(const std::string& name) {
        const CPSemaphore semaphore(1, 0, 0x7fffffff, name, 1);
        ASSERT_TRUE(semaphore.isOpen());
        m_files.push_back("/dev/shm/sem." + name);
    }

    static std::vector<std::string> list(const std::string& prefix, int type = 0) {
        const CPEnumNamedObjects objects(prefix, type);
        std::vector<std::string> names;
        std::string name;
        int found = -1;
        for (int index = 0; objects.enumNamedObject(index, &name, &found) != 0; ++index) {
            EXPECT_EQ(found, 0);
            names.push_back(name);
        }
        return names;
    }

    static bool exists(const std::string& name) { return fs::exists("/dev/shm/sem." + name); }

    std::vector<int> m_owners;
    std::vector<std::string> m_files;
};

}  // namespace

TEST_F(NamedObjects, ListsWholeNamesThatBeginWithThePrefix) {
    makeOwned("Test-Prefix-2");
    makeOwned("Test-Prefix-10");
    makeOwned("Test-Prefix-");
    makeOwned("Test-Prefi");
    makeOwned("Another-Test-Prefix-3");
    makeOwned("test-prefix-4");
    EXPECT_THAT(list("Test-Prefix-"),
                ElementsAre("Test-Prefix-", "Test-Prefix-10", "Test-Prefix-2"));
    EXPECT_THAT(list("Nothing-"), IsEmpty());
}

TEST_F(NamedObjects, AnswersZeroPastTheEnd) {
    makeOwned("Test-Prefix-1");
    const CPEnumNamedObjects objects("Test-Prefix-", 0);
    std::string name = "unchanged";
    int type = 42;
    EXPECT_EQ(objects.enumNamedObject(1, &name, &type), 0);
    EXPECT_EQ(objects.enumNamedObject(1000, &name, &type), 0);
    EXPECT_EQ(objects.enumNamedObject(-1, &name, &type), 0);
    EXPECT_EQ(name, "unchanged");
    EXPECT_EQ(type, 42);
    EXPECT_NE(objects.enumNamedObject(0, &name, &type), 0);
    EXPECT_EQ(name, "Test-Prefix-1");
    EXPECT_EQ(type, 0);
}

TEST_F(NamedObjects, ListsWhatWasThereWhenItWasMade) {
    makeOwned("Test-Prefix-1");
    const CPEnumNamedObjects objects("Test-Prefix-", 0);
    makeOwned("Test-Prefix-0");
    fs::remove("/dev/shm/sem.Test-Prefix-1");
    std::string name;
    int type = 0;
    EXPECT_EQ(objects.enumNamedObject(0, &name, &type), 1);
    EXPECT_EQ(name, "Test-Prefix-1");
    EXPECT_EQ(objects.enumNamedObject(1, &name, &type), 0);
}

TEST_F(NamedObjects, KnowsNoOtherType) {
    makeOwned("Test-Prefix-1");
    make("Test-Prefix-2");
    EXPECT_THAT(list("Test-Prefix-", 1), IsEmpty());
    EXPECT_THAT(list("Test-Prefix-", -1), IsEmpty());
    EXPECT_TRUE(exists("Test-Prefix-2"));
}

TEST_F(NamedObjects, ListsWhatNobodyOwnsToo) {
    makeOwned("Test-Prefix-1");
    make("Test-Prefix-2");
    make("Test-Other-4");
    EXPECT_THAT(list("Test-Prefix-"), ElementsAre("Test-Prefix-1", "Test-Prefix-2"));
    EXPECT_TRUE(exists("Test-Prefix-2"));
}

TEST_F(NamedObjects, FilesThatAreNoSemaphoresAreLeftAlone) {
    for (const char* file : {"/dev/shm/Test-Prefix-1", "/dev/shm/CPMutex.Test-Prefix-2"}) {
        std::ofstream(file) << "x";
        m_files.emplace_back(file);
    }
    EXPECT_THAT(list("Test-Prefix-"), IsEmpty());
    for (const std::string& file : m_files) {
        EXPECT_TRUE(fs::exists(file)) << file;
    }
}

TEST_F(NamedObjects, WithoutAnyObjectsThereAreNone) {
    EXPECT_THAT(list("Test-Prefix-"), IsEmpty());
}

// Only a mark that was taken some time after the last change tells that there was none since.
TEST_F(NamedObjects, AMarkTellsWhetherNamesHaveComeOrGone) {
    make("vqtest-mark-1");
    const CNamesMark early = CNamesMark::now();
    EXPECT_FALSE(early.isUnchangedSince(early));
    EXPECT_FALSE(early.isUnchangedSince(CNamesMark()));
    CNamesMark mark;
    const auto isSettled = [&] {
        mark = CNamesMark::now();
        return mark.isUnchangedSince(mark);
    };
    ASSERT_TRUE(vqtest::waitUntil(isSettled));
    EXPECT_TRUE(CNamesMark::now().isUnchangedSince(mark));
    make("vqtest-mark-2");
    EXPECT_FALSE(CNamesMark::now().isUnchangedSince(mark)) << "one has come";
    ASSERT_TRUE(vqtest::waitUntil(isSettled));
    fs::remove("/dev/shm/sem.vqtest-mark-2");
    EXPECT_FALSE(CNamesMark::now().isUnchangedSince(mark)) << "one has gone";
    ASSERT_TRUE(vqtest::waitUntil(isSettled));
    std::ofstream("/dev/shm/sem.vqtest-mark-1") << "x";
    EXPECT_TRUE(CNamesMark::now().isUnchangedSince(mark)) << "its content is another";
}

// As a container shows it that has a directory of its own in that place.
TEST_F(NamedObjects, AMarkOfAnotherDirectoryOfTheSameDiskIsLikeNone) {
    ASSERT_TRUE(vqtest::inPrivateRoot()) << "tests that mount must run under private_root";
    const std::string other = "/dev/shm/vqtest-directory";
    fs::create_directory(other);
    CNamesMark mark;
    ASSERT_TRUE(vqtest::waitUntil([&] {
        mark = CNamesMark::now();
        return mark.isUnchangedSince(mark);
    }));
    ASSERT_EQ(::mount(other.c_str(), "/dev/shm", nullptr, MS_BIND, nullptr), 0);
    EXPECT_FALSE(CNamesMark::now().isUnchangedSince(mark));
    ASSERT_EQ(::umount2("/dev/shm", MNT_DETACH), 0);
    EXPECT_TRUE(CNamesMark::now().isUnchangedSince(mark));
    fs::remove(other);
}
