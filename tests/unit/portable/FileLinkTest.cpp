// Which symbolic links are followed, and to where.
#include "portable/FileLink.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "support/TempStore.h"

namespace fs = std::filesystem;
using VQRegLib::fileBehindLinks;

namespace {

class FileLink : public testing::Test {
protected:
    std::string in(const std::string& name) const { return m_store.directory() + "/" + name; }

    vqtest::TempStore m_store;
};

TEST_F(FileLink, APathWithoutOneStaysAsItIs) {
    m_store.write("x");
    EXPECT_EQ(fileBehindLinks(m_store.path()), m_store.path());
    EXPECT_EQ(fileBehindLinks(in("missing")), in("missing"));
    EXPECT_EQ(fileBehindLinks("relative.cfg"), "relative.cfg");
    EXPECT_EQ(fileBehindLinks(m_store.directory()), m_store.directory());
    EXPECT_EQ(fileBehindLinks(""), "");
}

TEST_F(FileLink, IsFollowedFromLinkToLink) {
    m_store.write("x");
    fs::create_symlink(m_store.path(), in("second"));
    fs::create_symlink("second", in("first"));
    EXPECT_EQ(fileBehindLinks(in("first")), m_store.path());
}

TEST_F(FileLink, ARelativeTargetStartsBesideTheLink) {
    fs::create_directory(in("d"));
    fs::create_symlink("../real.cfg", in("d/a.cfg"));
    EXPECT_EQ(fileBehindLinks(in("d/a.cfg")), in("d/../real.cfg"));
    ASSERT_EQ(::chdir(in("d").c_str()), 0);
    EXPECT_EQ(fileBehindLinks("a.cfg"), "../real.cfg");
    EXPECT_EQ(fileBehindLinks("./a.cfg"), "./../real.cfg");
}

TEST_F(FileLink, WhatItLeadsToNeedNotExist) {
    fs::create_symlink(in("none/a.cfg"), in("link"));
    EXPECT_EQ(fileBehindLinks(in("link")), in("none/a.cfg"));
}

TEST_F(FileLink, ACircleEndsAtALink) {
    fs::create_symlink("b", in("a"));
    fs::create_symlink("a", in("b"));
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(fileBehindLinks(in("a")))));
}

TEST_F(FileLink, OfAnotherUserIsNotFollowed) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a link to somebody else";
    }
    m_store.write("x");
    fs::create_symlink(m_store.path(), in("theirs"));
    if (::lchown(in("theirs").c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root gives files away";
    }
    EXPECT_EQ(fileBehindLinks(in("theirs")), in("theirs"));
    fs::create_symlink("theirs", in("ours"));
    EXPECT_EQ(fileBehindLinks(in("ours")), in("theirs"));
}

}  // namespace
