#include "portable/SharedObject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include "support/TempStore.h"

namespace fs = std::filesystem;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;
using VQRegLib::CSharedObject;

namespace {

constexpr const char* kName = "SharedObjectTest";
const std::string kObject = std::string("/dev/shm/") + kName;
int g_initialised = 0;

int initialise(void* address) {
    ++g_initialised;
    EXPECT_FALSE(fs::exists(kObject)) << "it must not be seen unfinished";
    EXPECT_EQ(std::memcmp(address, "\0\0\0\0", 4), 0);
    std::memcpy(address, "done", 4);
    return 0;
}

int failToInitialise(void*) {
    return EAGAIN;
}

// A path in a directory of its own, so that the name of its object is as long as asked.
std::string pathForNameOf(std::size_t length) {
    const std::string prefix = CSharedObject::nameForPath("Kind", "/tmp/");
    return "/tmp/" + std::string(length - prefix.size(), 'x');
}

}  // namespace

TEST(SharedObjectName, SpellsThePathWithoutSlashes) {
    EXPECT_EQ(CSharedObject::nameForPath("CPMutex", "/etc/Velquist.cfg"),
              "CPMutex.%2Fetc%2FVelquist.cfg");
    EXPECT_EQ(CSharedObject::nameForPath("CPSharedMemory", "/tmp/50%.cfg"),
              "CPSharedMemory.%2Ftmp%2F50%25.cfg");
    EXPECT_EQ(CSharedObject::nameForPath("K", "/a"), "K.%2Fa");
}

TEST(SharedObjectName, ResolvesTheDirectoryButNotTheFile) {
    const vqtest::TempStore store;
    const std::string directory = store.directory();
    fs::create_symlink("elsewhere", directory + "/file");
    fs::create_directory_symlink(directory, directory + "/link");
    const std::string expected = "K." + vqtest::encodedPath(directory + "/file");
    EXPECT_EQ(CSharedObject::nameForPath("K", directory + "/file"), expected);
    EXPECT_EQ(CSharedObject::nameForPath("K", directory + "/link/./file"), expected);
    ASSERT_EQ(chdir(directory.c_str()), 0);
    EXPECT_EQ(CSharedObject::nameForPath("K", "file"), expected);
    ASSERT_EQ(chdir("/"), 0);
}

TEST(SharedObjectName, TakesAPathAsItStandsWhenItsDirectoryIsMissing) {
    EXPECT_EQ(CSharedObject::nameForPath("K", "/missing/../a"), "K.%2Fmissing%2F..%2Fa");
}

TEST(SharedObjectName, DiffersForDifferentPaths) {
    const std::set<std::string> paths = {"/tmp/a",   "/tmp/A",     "/tmp/a%",       "/tmp/a%25",
                                         "/tmp/%2F", "/tmp/%252F", "/tmp/%",        "/tmp/%2525",
                                         "/tmp/a.b", "/tmp/a b",   "/tmp/\xc3\xa4", "/tmp%2Fa"};
    std::set<std::string> names;
    for (const std::string& path : paths) {
        const std::string name = CSharedObject::nameForPath("K", path);
        EXPECT_EQ(name.find('/'), std::string::npos);
        names.insert(name);
    }
    EXPECT_EQ(names.size(), paths.size());
}

TEST(SharedObjectName, IsPlainUpToTheLongestFileName) {
    const std::string longest = CSharedObject::nameForPath("Kind", pathForNameOf(255));
    EXPECT_THAT(longest, SizeIs(255));
    EXPECT_THAT(longest, MatchesRegex("Kind\\.%2Ftmp%2Fx*"));
    const std::string cut = CSharedObject::nameForPath("Kind", pathForNameOf(256));
    EXPECT_THAT(cut, SizeIs(255));
    EXPECT_THAT(cut, MatchesRegex("Kind\\.%2Ftmp%2Fx*#[0-9a-f]+"));
    EXPECT_EQ(cut.find('#'), 255u - 33u);
}

TEST(SharedObjectName, OfALongPathDependsOnAllOfIt) {
    const std::string path = pathForNameOf(400);
    std::set<std::string> names;
    for (const std::size_t at : {std::size_t{5}, std::size_t{100}, path.size() - 1}) {
        for (const char byte : {'y', 'z'}) {
            std::string other = path;
            other[at] = byte;
            names.insert(CSharedObject::nameForPath("Kind", other));
        }
    }
    names.insert(CSharedObject::nameForPath("Kind", path));
    names.insert(CSharedObject::nameForPath("Kine", path));
    names.insert(CSharedObject::nameForPath("Kind", path + "x"));
    EXPECT_THAT(names, SizeIs(9));
    EXPECT_EQ(CSharedObject::nameForPath("Kind", path), CSharedObject::nameForPath("Kind", path));
}

TEST(SharedObject, IsFilledBeforeItGetsItsName) {
    CSharedObject first;
    ASSERT_EQ(first.open(kName, 4, initialise), 0);
    EXPECT_TRUE(first.isCreator());
    EXPECT_EQ(std::memcmp(first.address(), "done", 4), 0);
    CSharedObject second;
    ASSERT_EQ(second.open(kName, 4, initialise), 0);
    EXPECT_FALSE(second.isCreator());
    EXPECT_EQ(std::memcmp(second.address(), "done", 4), 0);
    EXPECT_EQ(g_initialised, 1);
}

TEST(SharedObject, IsNotMadeWhenItCannotBeFilled) {
    CSharedObject object;
    EXPECT_EQ(object.open(kName, 4, failToInitialise), EAGAIN);
    EXPECT_EQ(object.address(), nullptr);
    EXPECT_FALSE(object.isCreator());
    EXPECT_FALSE(fs::exists(kObject));
}

TEST(SharedObject, CanBeOfferedAgainAfterItsFileIsGone) {
    {
        CSharedObject object;
        ASSERT_EQ(object.open(kName, 4, nullptr), 0);
        std::memcpy(object.address(), "used", 4);
    }
    ASSERT_TRUE(fs::remove(kObject));
    CSharedObject object;
    ASSERT_EQ(object.open(kName, 4, nullptr), 0);
    EXPECT_TRUE(object.isCreator());
    EXPECT_EQ(std::memcmp(object.address(), "\0\0\0\0", 4), 0);
}

TEST(SharedObject, StaysMappedWhenItIsLeaked) {
    void* address = nullptr;
    {
        CSharedObject object;
        ASSERT_EQ(object.open(kName, 4, nullptr), 0);
        address = object.address();
        object.leak();
        EXPECT_EQ(object.address(), nullptr);
    }
    std::memcpy(address, "kept", 4);
    EXPECT_EQ(vqtest::readFile(kObject), "kept");
}
