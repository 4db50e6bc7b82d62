// Stores whose path is a symbolic link, or no file at all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/StoreFixture.h"

namespace fs = std::filesystem;
using namespace vqtest;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

class LinkedFile : public StoreTest {
protected:
    LinkedFile() {
        fs::create_directory(other());
        fs::create_symlink("other/real.cfg", file.path());
    }

    std::string other() const { return file.directory() + "/other"; }
    std::string real() const { return other() + "/real.cfg"; }

    std::unique_ptr<CRegLibImplFile> openPath(const std::string& path) const {
        return std::make_unique<CRegLibImplFile>(path.c_str(), nullptr, CRegLib::eLocationDefault,
                                                 nullptr);
    }

    mode_t modeOf(const std::string& path) const {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777u;
    }
};

}  // namespace

TEST_F(LinkedFile, AChangeGoesToTheFileBehindTheLink) {
    std::ofstream(real()) << "[Velquist]\n\"a\"=string:old\n";
    const auto store = open();
    EXPECT_EQ(get(*store, *store->RootKey(), "a"), Value::ofText("old"));
    setText(*store, *store->RootKey(), "a", "x");
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(file.path())));
    EXPECT_EQ(readFile(real()), "[Velquist]\n\"a\"=string:x\n");
    EXPECT_EQ(readFile(real() + ".bak"), "[Velquist]\n\"a\"=string:old\n");
    EXPECT_THAT(file.files(), ElementsAre("other", "store.cfg")) << "nothing beside the link";
}

TEST_F(LinkedFile, AFileBehindTheLinkIsMadeWhenItIsMissing) {
    const auto store = open();
    EXPECT_EQ(readFile(real()), "[Velquist]\n");
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(file.path())));
}

TEST_F(LinkedFile, BothNamesAreOneStore) {
    const auto byLink = open();
    const auto byFile = openPath(real());
    setText(*byLink, *byLink->RootKey(), "a", "x");
    EXPECT_EQ(get(*byFile, *byFile->RootKey(), "a"), Value::ofText("x"));
    setText(*byFile, *byFile->RootKey(), "a", "y");
    EXPECT_EQ(get(*byLink, *byLink->RootKey(), "a"), Value::ofText("y"));
    EXPECT_THAT(file.sharedObjects(), SizeIs(2)) << "one lock and one stamp";
}

TEST_F(LinkedFile, TheLinkIsFollowedOnceAndForAll) {
    const auto store = open();
    ASSERT_EQ(::unlink(file.path().c_str()), 0);
    fs::create_symlink("other/elsewhere.cfg", file.path());
    setText(*store, *store->RootKey(), "a", "x");
    EXPECT_EQ(readFile(real()), "[Velquist]\n\"a\"=string:x\n");
    EXPECT_FALSE(fs::exists(other() + "/elsewhere.cfg"));
}

TEST_F(LinkedFile, ALinkPlantedLaterIsNotFollowed) {
    const auto store = open();
    const std::string secret = file.directory() + "/secret";
    std::ofstream(secret) << "[Velquist]\n\"a\"=string:secret\n";
    ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
    ASSERT_EQ(::unlink(real().c_str()), 0);
    fs::create_symlink(secret, real());
    CFileStoreProbe(*store).moveStamp();
    EXPECT_EQ(get(*store, *store->RootKey(), "a"), Value::failure(REGLIB_E_FILE_OPEN));
    EXPECT_EQ(setText(*store, *store->RootKey(), "a", "x"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(modeOf(secret), 0600u);
    EXPECT_EQ(readFile(secret), "[Velquist]\n\"a\"=string:secret\n");
}

TEST_F(LinkedFile, ALinkThatIsInTheWayOfAChangeIsReplacedAndNotFollowed) {
    const auto store = open();
    const std::string secret = file.directory() + "/secret";
    std::ofstream(secret) << "secret";
    ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
    ASSERT_EQ(::unlink(real().c_str()), 0);
    fs::create_symlink(secret, real());
    EXPECT_EQ(setText(*store, *store->RootKey(), "a", "x"), REGLIB_OK);
    EXPECT_EQ(modeOf(secret), 0600u);
    EXPECT_EQ(readFile(secret), "secret");
    EXPECT_FALSE(fs::is_symlink(fs::symlink_status(real())));
}

TEST_F(LinkedFile, AnotherUsersLinkIsNoStore) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a link to somebody else";
    }
    std::ofstream(real()) << "[Velquist]\n";
    ASSERT_EQ(::chmod(real().c_str(), 0600), 0);
    if (::lchown(file.path().c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    EXPECT_THROW(open(), VQException);
    EXPECT_EQ(modeOf(real()), 0600u);
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(file.path())));
}

TEST_F(LinkedFile, WhatIsNoFileIsNoStoreAndKeepsItsMode) {
    ASSERT_EQ(::chmod(other().c_str(), 0750), 0);
    EXPECT_THROW(openPath(other()), VQException);
    EXPECT_EQ(modeOf(other()), 0750u);
    const std::string fifo = file.directory() + "/fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0640), 0);
    EXPECT_THROW(openPath(fifo), VQException);
    EXPECT_EQ(modeOf(fifo), 0640u);
}

TEST_F(LinkedFile, AnEmptyPathIsNoStore) {
    EXPECT_THROW(openPath(""), VQException);
    const CRegLib session("", nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_EQ(session.RootKey(), nullptr);
}
