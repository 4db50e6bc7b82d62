// A symbolic link in the place of the store's file.
#include <VQRegLib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/OtherUser.h"
#include "tools/VqregStore.h"

using vqtest::Arguments;
using vqtest::fails;
using vqtest::prints;

namespace fs = std::filesystem;

class LinkedStore : public vqtest::VqregStore {
protected:
    static constexpr const char* kText = "[Velquist]\n\"V\"=string:x\n";

    // Both are names in the directory of the store, or absolute ones.
    void link(const std::string& name, const std::string& target) const {
        fs::create_symlink(target, at(name));
    }

    std::string at(const std::string& name) const {
        return (fs::path(file.directory()) / name).string();
    }

    vqtest::CommandResult runAt(const std::string& name, Arguments arguments) const {
        arguments.insert(arguments.begin(), {"--file", at(name)});
        return vqtest::runVqreg(arguments, "", {{"LC_ALL", "C"}});
    }

    bool isLink(const std::string& name) const { return fs::is_symlink(at(name)); }
};

TEST_F(LinkedStore, IsTheOneOfTheFileBehindIt) {
    fs::create_directory(at("data"));
    const vqtest::TempStore elsewhere;
    link("first", "data/second");
    link("data/second", elsewhere.path());
    elsewhere.write(kText);
    EXPECT_EQ(runAt("first", {"get", "/", "V"}), prints("x\n"));
    EXPECT_EQ(runAt("first", {"set", "/", "V", "y"}), prints(""));
    EXPECT_TRUE(isLink("first"));
    EXPECT_TRUE(isLink("data/second"));
    EXPECT_EQ(elsewhere.read(), "[Velquist]\n\"V\"=string:y\n");
    EXPECT_EQ(elsewhere.readBackup(), kText);
    EXPECT_EQ(runAt("first", {"restore", "-n"}).out, "~ [Velquist] \"V\"=string:y -> string:x\n");
    EXPECT_EQ(runAt("first", {"restore", "-f"}).status, 0);
    EXPECT_EQ(elsewhere.read(), kText);
    EXPECT_EQ(fs::directory_iterator(at("data"))->path(), at("data/second"));
}

TEST_F(LinkedStore, RestoresAMalformedFileBehindIt) {
    link("link", fs::path(file.path()).filename());
    file.write("nonsense\n");
    std::ofstream(file.backupPath()) << kText;
    EXPECT_EQ(runAt("link", {"restore", "-f"}).status, 0);
    EXPECT_TRUE(isLink("link"));
    EXPECT_EQ(file.read(), kText);
    EXPECT_EQ(vqtest::readFile(file.path() + ".malformed"), "nonsense\n");
}

TEST_F(LinkedStore, IsMadeWhereTheLinkLeads) {
    link("link", "new.cfg");
    EXPECT_EQ(runAt("link", {"ls"}), fails(3, at("new.cfg") + ": the file does not exist"));
    EXPECT_EQ(runAt("link", {"set", "/", "V", "x"}), prints(""));
    EXPECT_TRUE(isLink("link"));
    EXPECT_EQ(vqtest::readFile(at("new.cfg")), kText);
}

TEST_F(LinkedStore, InfoShowsBothNamesAndTheObjectsOfTheRealFile) {
    file.write(kText);
    link("link", file.path());
    ASSERT_EQ(run({"set", "/", "V", "y"}), prints(""));
    const VQRegLib::CRegLib session(file.path().c_str(), nullptr,
                                    VQRegLib::CRegLib::eLocationDefault, nullptr);
    const std::string out = runAt("link", {"info"}).out;
    EXPECT_EQ(out.substr(0, out.find("\nwhy")),
              "file           " + at("link") + "\nreal file      " + file.path());
    EXPECT_NE(out.find("\nbackup         " + file.backupPath() + ", "), std::string::npos) << out;
    EXPECT_EQ(out.find("change stamp   none"), std::string::npos) << out;
    const std::string json = runAt("link", {"info", "--json"}).out;
    EXPECT_EQ(json.rfind("{\n  \"file\": \"" + at("link") + "\",\n  \"realFile\": \"" +
                             file.path() + "\",\n",
                         0),
              0u)
        << json;
    EXPECT_EQ(run({"info"}).out.find("real file"), std::string::npos);
}

TEST_F(LinkedStore, LeadsToOneLockAndOneStamp) {
    file.write(kText);
    link("link", file.path());
    EXPECT_EQ(runAt("link", {"set", "/", "V", "y"}), prints(""));
    EXPECT_EQ(run({"set", "/", "V", "z"}), prints(""));
    for (const std::string& object : file.sharedObjects()) {
        EXPECT_NE(object.find(vqtest::encodedPath(file.path())), std::string::npos) << object;
    }
}

TEST_F(LinkedStore, CleansBesideTheRealFile) {
    fs::create_directory(at("data"));
    link("link", "data/x.cfg");
    const std::string left = at("data/x.cfg0a1b2c3d-0123-4567-89ab-0123456789ab");
    ASSERT_EQ(0, ::symlink("x", (left + "x").c_str()));
    const int fd = ::creat(left.c_str(), 0600);
    const timespec times[2] = {{1, 0}, {1, 0}};
    ASSERT_EQ(0, ::futimens(fd, times));
    ::close(fd);
    EXPECT_EQ(runAt("link", {"clean"}), prints(left + "\n"));
}

TEST_F(LinkedStore, IsRefusedWhereSomebodyElseHasMadeTheLink) {
    file.write(kText);
    ASSERT_EQ(0, ::chmod(file.path().c_str(), 0600));
    link("link", file.path());
    if (::lchown(at("link").c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root may give a link away";
    }
    const std::string why = at("link") +
                            ": is a symbolic link of nobody's; only those of root and "
                            "your own are followed";
    for (const Arguments& arguments : std::vector<Arguments>{{"get", "/", "V"},
                                                             {"set", "/", "V", "y"},
                                                             {"info"},
                                                             {"check"},
                                                             {"export"},
                                                             {"restore"},
                                                             {"notify"},
                                                             {"watch"},
                                                             {"clean"}}) {
        EXPECT_EQ(runAt("link", arguments), fails(3, why)) << arguments.front();
    }
    // A link in the middle counts as well.
    link("first", "link");
    EXPECT_EQ(runAt("first", {"set", "/", "V", "y"}), fails(3, why));
    EXPECT_EQ(file.read(), kText);
    struct stat status {};
    ASSERT_EQ(0, ::stat(file.path().c_str(), &status));
    EXPECT_EQ(status.st_mode & 07777u, 0600u);
}

TEST_F(LinkedStore, OfACircleIsNone) {
    link("a", "b");
    link("b", "a");
    EXPECT_EQ(runAt("a", {"set", "/", "V", "y"}),
              fails(3, at("a") + ": the symbolic links go in a circle"));
}

// The default store of somebody else's link is not needed for another store.
TEST_F(LinkedStore, OfTheDefaultStoreHindersNoOther) {
    file.write(kText);
    fs::create_symlink("/etc/nowhere", "/etc/Velquist.cfg");
    if (::lchown("/etc/Velquist.cfg", 65534, 65534) != 0) {
        GTEST_SKIP() << "only root may give a link away";
    }
    EXPECT_EQ(run({"get", "/", "V"}), prints("x\n"));
    EXPECT_EQ(vqtest::runVqreg({"get", "/", "V"}).status, 3);
}

TEST_F(LinkedStore, OfAnotherUserIsFollowedForThatUser) {
    if (!vqtest::mayRunAsAnother(VQREG_COMMAND_PATH)) {
        GTEST_SKIP() << "no program can be run as another user here";
    }
    fs::permissions(file.directory(), fs::perms(0777));
    file.write(kText);
    link("link", file.path());
    ASSERT_EQ(0, ::lchown(at("link").c_str(), 65534, 65534));
    Arguments all = vqtest::asAnother(VQREG_COMMAND_PATH);
    all.insert(all.end(), {"--file", at("link"), "set", "/", "V", "y"});
    EXPECT_EQ(vqtest::ChildProcess(vqtest::kAsAnother, all).finish(), prints(""));
    EXPECT_TRUE(isLink("link"));
    EXPECT_EQ(file.read(), "[Velquist]\n\"V\"=string:y\n");
}
