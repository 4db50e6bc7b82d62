#include "portable/SharedFile.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "portable/ObjectName.h"
#include "support/Wait.h"

namespace fs = std::filesystem;
using VQRegLib::CSharedFile;

namespace {

class SharedFile : public testing::Test {
protected:
    SharedFile() { EXPECT_EQ(file.open(m_name, 8), 0); }
    ~SharedFile() override { fs::remove(path); }

    const std::string m_name = "vqtest-file-" + std::to_string(::getpid());
    const std::string path = VQRegLib::objectFile(m_name);
    CSharedFile file;
};

}  // namespace

TEST_F(SharedFile, IsInPlaceUntilItIsRemoved) {
    EXPECT_TRUE(file.isInPlace());
    EXPECT_TRUE(file.isInPlace());
    fs::remove(path);
    EXPECT_FALSE(file.isInPlace());
    EXPECT_TRUE(file.isOurs());
    EXPECT_EQ(file.open(m_name, 8), 0);
    EXPECT_TRUE(file.isInPlace());
}

TEST_F(SharedFile, IsNotInPlaceWhenAnotherOneHasReplacedIt) {
    EXPECT_TRUE(file.isInPlace());
    CSharedFile other;
    ASSERT_EQ(other.open(m_name + ".other", 8), 0);
    fs::rename(path + ".other", path);
    EXPECT_FALSE(file.isInPlace());
    EXPECT_TRUE(vqtest::waitUntil([&] { return !other.isInPlace(); })) << "it was moved";
}

TEST_F(SharedFile, IsNotInPlaceWhenItsDescriptorIsAnothers) {
    const int descriptor = file.descriptor();
    ASSERT_EQ(::dup2(0, descriptor), descriptor);
    EXPECT_FALSE(file.isInPlace());
    file.close();
    EXPECT_EQ(::close(descriptor), 0) << "it was left alone";
}

TEST_F(SharedFile, IsNotInPlaceWhenItsDescriptorIsThatOfAnotherObject) {
    CSharedFile other;
    ASSERT_EQ(other.open(m_name + ".other", 8), 0);
    const int descriptor = file.descriptor();
    ASSERT_EQ(::dup2(other.descriptor(), descriptor), descriptor);
    EXPECT_FALSE(file.isOurs());
    EXPECT_FALSE(file.isInPlace());
    file.close();
    EXPECT_EQ(::close(descriptor), 0) << "it was left alone";
    fs::remove(path + ".other");
}

TEST_F(SharedFile, IsNotNamedByAPathThatMeansAFileOfAnotherDisk) {
    const int unnamed = ::memfd_create("file", MFD_CLOEXEC);
    CSharedFile other;
    other.keep(unnamed, path);
    EXPECT_TRUE(other.isOurs());
    EXPECT_FALSE(other.isNamed());
    EXPECT_FALSE(other.isInPlace());
    ::close(unnamed);
}

TEST_F(SharedFile, MovedAwayItIsMissedWithinASecond) {
    EXPECT_TRUE(file.isInPlace());
    fs::rename(path, path + ".away");
    EXPECT_TRUE(vqtest::waitUntil([&] { return !file.isInPlace(); }));
    fs::rename(path + ".away", path);
    EXPECT_TRUE(file.isInPlace());
}

TEST_F(SharedFile, WithASecondNameItsOwnIsLookedUpEachTime) {
    EXPECT_TRUE(file.isInPlace());
    fs::create_hard_link(path, path + ".1");
    fs::create_hard_link(path, path + ".2");
    EXPECT_TRUE(file.isInPlace());
    fs::remove(path);
    EXPECT_FALSE(file.isInPlace());
    fs::remove(path + ".1");
    fs::remove(path + ".2");
}

// Where fs.protected_hardlinks is off, anybody can give a stranger's file an object's name.
TEST_F(SharedFile, ThatIsALinkToWhatIsNotEverybodysIsRefusedAndLeftAlone) {
    fs::remove(path);
    const std::string victim = path + ".victim";
    std::ofstream(victim) << "nobody else's";
    fs::permissions(victim, fs::perms{0600});
    fs::create_hard_link(victim, path);
    CSharedFile other;
    EXPECT_EQ(other.open(m_name, 8), EMLINK);
    fs::permissions(victim, fs::perms{0666});
    EXPECT_EQ(other.open(m_name, 8), 0) << "anybody may write it anyway";
    fs::remove(victim);
}
