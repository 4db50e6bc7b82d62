#include "portable/ObjectName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

#include "support/TempStore.h"

using namespace VQRegLib;

namespace fs = std::filesystem;
using testing::MatchesRegex;
using testing::SizeIs;

namespace {

// A path in a directory of its own, so that the name of its object is as long as asked.
std::string pathForNameOf(std::size_t length) {
    const std::string prefix = objectName("Kind", "/tmp/");
    return "/tmp/" + std::string(length - prefix.size(), 'x');
}

}  // namespace

TEST(ObjectName, SpellsThePathWithoutSlashes) {
    EXPECT_EQ(objectName("CPMutex", "/etc/Velquist.cfg"), "CPMutex.%2Fetc%2FVelquist.cfg");
    EXPECT_EQ(objectName("CPSharedMemory", "/tmp/50%.cfg"), "CPSharedMemory.%2Ftmp%2F50%25.cfg");
    EXPECT_EQ(objectName("K", "/a"), "K.%2Fa");
}

TEST(ObjectName, ResolvesTheDirectoryButNotTheFile) {
    const vqtest::TempStore store;
    const std::string directory = store.directory();
    fs::create_symlink("elsewhere", directory + "/file");
    fs::create_directory_symlink(directory, directory + "/link");
    const std::string expected = "K." + vqtest::encodedPath(directory + "/file");
    EXPECT_EQ(objectName("K", directory + "/file"), expected);
    EXPECT_EQ(objectName("K", directory + "/link/./file"), expected);
    ASSERT_EQ(chdir(directory.c_str()), 0);
    EXPECT_EQ(objectName("K", "file"), expected);
    ASSERT_EQ(chdir("/"), 0);
}

TEST(ObjectName, TakesAPathAsItStandsWhenItsDirectoryIsMissing) {
    EXPECT_EQ(objectName("K", "/missing/../a"), "K.%2Fmissing%2F..%2Fa");
}

TEST(ObjectName, DiffersForDifferentPaths) {
    const std::set<std::string> paths = {"/tmp/a",   "/tmp/A",     "/tmp/a%",       "/tmp/a%25",
                                         "/tmp/%2F", "/tmp/%252F", "/tmp/%",        "/tmp/%2525",
                                         "/tmp/a.b", "/tmp/a b",   "/tmp/\xc3\xa4", "/tmp%2Fa"};
    std::set<std::string> names;
    for (const std::string& path : paths) {
        const std::string name = objectName("K", path);
        EXPECT_EQ(name.find('/'), std::string::npos);
        names.insert(name);
    }
    EXPECT_EQ(names.size(), paths.size());
}

TEST(ObjectName, IsPlainUpToTheLongestFileName) {
    const std::string longest = objectName("Kind", pathForNameOf(255));
    EXPECT_THAT(longest, SizeIs(255));
    EXPECT_THAT(longest, MatchesRegex("Kind\\.%2Ftmp%2Fx*"));
    const std::string cut = objectName("Kind", pathForNameOf(256));
    EXPECT_THAT(cut, SizeIs(255));
    EXPECT_THAT(cut, MatchesRegex("Kind\\.%2Ftmp%2Fx*#[0-9a-f]+"));
    EXPECT_EQ(cut.find('#'), 255u - 33u);
}

TEST(ObjectName, OfALongPathDependsOnAllOfIt) {
    const std::string path = pathForNameOf(400);
    std::set<std::string> names;
    for (const std::size_t at : {std::size_t{5}, std::size_t{100}, path.size() - 1}) {
        for (const char byte : {'y', 'z'}) {
            std::string other = path;
            other[at] = byte;
            names.insert(objectName("Kind", other));
        }
    }
    names.insert(objectName("Kind", path));
    names.insert(objectName("Kine", path));
    names.insert(objectName("Kind", path + "x"));
    EXPECT_THAT(names, SizeIs(9));
    EXPECT_EQ(objectName("Kind", path), objectName("Kind", path));
}

TEST(ObjectName, ItsFileIsInTheMemoryOfTheMachine) {
    EXPECT_EQ(objectFile("CPLock.%2Fa"), "/dev/shm/CPLock.%2Fa");
    EXPECT_EQ(objectPath(kLockKind, "/a"), "/dev/shm/CPLock.%2Fa");
    EXPECT_EQ(objectPath(kBlockKind, "/a"), "/dev/shm/CPBlock.%2Fa");
    EXPECT_EQ(objectPath(kOlderLockKind, "/a"), "/dev/shm/CPMutex.%2Fa");
    EXPECT_EQ(objectPath(kOlderBlockKind, "/a"), "/dev/shm/CPSharedMemory.%2Fa");
}

// As published for the hash: the empty text gives its offset, and these are its test vectors.
TEST(ObjectName, HashesAsPublished) {
    EXPECT_EQ(hash128(""), "6c62272e07bb014262b821756295c58d");
    EXPECT_EQ(hash128("a"), "d228cb696f1a8caf78912b704e4a8964");
    EXPECT_EQ(hash128("foobar"), "343e1662793c64bf6f0d3597ba446f18");
}
