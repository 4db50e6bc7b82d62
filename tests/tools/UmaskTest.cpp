// The mode of a store's file, whoever changes it with whatever mask.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/OtherUser.h"
#include "tools/VqregStore.h"

using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::prints;

class Umask : public vqtest::VqregStore {
protected:
    static constexpr const char* kText =
        "[Velquist]\n\"V\"=string:x\n[Velquist/Empty]\n[Velquist/Net]\n\"Port\"=dword:00000050\n";

    // The command behind a narrow mask; `before` is what starts it, with arguments of its own.
    static Arguments masked(const Arguments& before, const Arguments& arguments) {
        Arguments all = {"-c", R"(umask 077; exec "$0" "$@")"};
        all.insert(all.end(), before.begin(), before.end());
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }

    CommandResult start(const Arguments& before, Arguments arguments,
                        const std::string& input) const {
        arguments.insert(arguments.begin(), {"--file", file.path()});
        return vqtest::ChildProcess(
                   "/bin/sh", masked(before, arguments),
                   {{"VISUAL", "sed s/string:x/string:y/ -i"}, {"TMPDIR", file.directory()}})
            .finish(input);
    }

    CommandResult narrow(const Arguments& arguments, const std::string& input = {}) const {
        return start({VQREG_COMMAND_PATH}, arguments, input);
    }

    CommandResult narrowAsAnother(const Arguments& arguments, const std::string& input = {}) const {
        Arguments before = vqtest::asAnother(VQREG_COMMAND_PATH);
        before.insert(before.begin(), vqtest::kAsAnother);
        return start(before, arguments, input);
    }

    using Changes = std::vector<std::pair<Arguments, std::string>>;

    // All that change a store, with what they read.
    static Changes changes() {
        return {{{"set", "Net", "Port", "81"}, ""},
                {{"set", "New", "V", "81"}, ""},
                {{"rm", "Net", "Port"}, ""},
                {{"rm", "Empty"}, ""},
                {{"rm", "-r", "Net"}, ""},
                {{"mkkey", "New"}, ""},
                {{"cp", "Net", "Copy"}, ""},
                {{"cp", "Net", "Port", "Empty"}, ""},
                {{"mv", "Net", "Moved"}, ""},
                {{"mv", "Net", "Port", "Empty"}, ""},
                {{"import", "-"}, "[Velquist]\n\"W\"=string:x\n"},
                {{"import", "--replace", "-"}, "[Velquist]\n\"W\"=string:x\n"},
                {{"edit", "-y"}, ""},
                {{"restore", "-f"}, ""}};
    }

    unsigned mode() const {
        struct stat status {};
        EXPECT_EQ(0, ::stat(file.path().c_str(), &status));
        return status.st_mode & 07777u;
    }
};

TEST_F(Umask, MakesNoDifferenceToAnyChange) {
    for (const auto& [arguments, input] : changes()) {
        file.write(kText);
        std::filesystem::permissions(file.path(), std::filesystem::perms(0600));
        std::ofstream(file.backupPath()) << "[Velquist]\n\"V\"=string:old\n";
        const ino_t before = file.inode();
        const CommandResult result = narrow(arguments, input);
        EXPECT_EQ(result.status, 0) << arguments.front() << ": " << result.err;
        EXPECT_NE(file.inode(), before) << arguments.front() << " has changed nothing";
        EXPECT_EQ(mode(), 0666u) << arguments.front() << ' ' << arguments.back();
    }
}

TEST_F(Umask, MakesNoDifferenceToAnyChangeOfAnotherUser) {
    if (!vqtest::mayRunAsAnother(VQREG_COMMAND_PATH)) {
        GTEST_SKIP() << "no program can be run as another user here";
    }
    std::filesystem::permissions(file.directory(), std::filesystem::perms(0777));
    for (const auto& [arguments, input] : changes()) {
        std::filesystem::remove(file.path());
        std::filesystem::remove(file.backupPath());
        file.write(kText);
        std::filesystem::permissions(file.path(), std::filesystem::perms(0666));
        std::ofstream(file.backupPath()) << "[Velquist]\n\"V\"=string:old\n";
        const CommandResult result = narrowAsAnother(arguments, input);
        EXPECT_EQ(result.status, 0) << arguments.front() << ": " << result.err;
        struct stat status {};
        ASSERT_EQ(0, ::stat(file.path().c_str(), &status));
        EXPECT_EQ(status.st_uid, 65534u) << arguments.front() << " has changed nothing";
        EXPECT_EQ(mode(), 0666u) << arguments.front() << ' ' << arguments.back();
    }
}

TEST_F(Umask, MakesNoDifferenceToANewFile) {
    const std::pair<Arguments, std::string> makers[] = {{{"set", "/", "V", "1"}, ""},
                                                        {{"mkkey", "/"}, ""},
                                                        {{"mkkey", "New"}, ""},
                                                        {{"import", "-"}, "[Velquist]\n"},
                                                        {{"edit", "-y"}, ""}};
    for (const auto& [arguments, input] : makers) {
        EXPECT_EQ(narrow(arguments, input).status, 0) << arguments.front();
        EXPECT_EQ(mode(), 0666u) << arguments.front();
        std::filesystem::remove(file.path());
        std::filesystem::remove(file.backupPath());
    }
}

TEST_F(Umask, MakesNoDifferenceToARestoredFile) {
    for (const char* const text : {"nonsense\n", static_cast<const char*>(nullptr)}) {
        std::filesystem::remove(file.path());
        if (text) {
            file.write(text);
        }
        std::ofstream(file.backupPath()) << kText;
        EXPECT_EQ(narrow({"restore", "-f"}).status, 0);
        EXPECT_EQ(mode(), 0666u);
        EXPECT_EQ(file.read(), kText);
    }
}

// The caller's own mask is what programs get that the command starts.
TEST_F(Umask, StaysThatOfTheEditor) {
    file.write(kText);
    const std::string seen = file.directory() + "/mask";
    const auto result =
        vqtest::ChildProcess(
            "/bin/sh", masked({VQREG_COMMAND_PATH}, {"--file", file.path(), "edit", "-y"}),
            {{"VISUAL", "f() { umask > " + seen + "; sed -i s/string:x/string:y/ \"$1\"; }; f"},
             {"TMPDIR", file.directory()}})
            .finish();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(vqtest::readFile(seen), "0077\n");
}

TEST_F(Umask, OfOneUserKeepsNoOtherOut) {
    if (!vqtest::mayRunAsAnother(VQREG_COMMAND_PATH)) {
        GTEST_SKIP() << "no program can be run as another user here";
    }
    std::filesystem::permissions(file.directory(), std::filesystem::perms(0777));
    ASSERT_EQ(narrow({"set", "/", "V", "1"}).status, 0);
    EXPECT_EQ(narrowAsAnother({"get", "/", "V"}), prints("1\n"));
    EXPECT_EQ(narrowAsAnother({"set", "/", "V", "2"}), prints(""));
    EXPECT_EQ(mode(), 0666u);
    EXPECT_EQ(narrow({"set", "/", "V", "3"}), prints(""));
    EXPECT_EQ(narrowAsAnother({"get", "/", "V"}), prints("3\n"));
}
