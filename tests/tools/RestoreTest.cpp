// vqreg restore: the text before the last change.
#include <VQRegLib.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

#include "tools/VqregStore.h"

using vqtest::fails;
using vqtest::prints;

class Restore : public vqtest::VqregStore {};

TEST_F(Restore, ShowsAndBringsBack) {
    make({"set", "K", "V", "1"});
    make({"set", "K", "Text", "x"});
    const std::string wanted = file.read();
    make({"rm", "-r", "K"});
    const std::string difference =
        "+ [Velquist/K]\n+ [Velquist/K] \"Text\"=string:x\n"
        "+ [Velquist/K] \"V\"=dword:00000001\n";
    EXPECT_EQ(run({"restore", "-n"}), prints(difference));
    EXPECT_EQ(file.read(), "[Velquist]\n");
    EXPECT_EQ(run({"restore"}), prints(difference));
    EXPECT_EQ(file.read(), wanted);
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
    EXPECT_EQ(run({"restore"}), prints("- [Velquist/K]\n- [Velquist/K] \"Text\"=string:x\n"
                                       "- [Velquist/K] \"V\"=dword:00000001\n"));
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(Restore, ReachesOtherTopLevelKeys) {
    file.write("[Velquist]\n\"V\"=string:new\n[Only]\n\"X\"=dword:00000001\n");
    const std::string wanted = "[Other]\n\"Y\"=binary:00\n[Velquist]\n\"V\"=string:old\n";
    std::ofstream(file.backupPath()) << wanted;
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), wanted);
    EXPECT_EQ(run({"restore", "--json", "-n"}).status, 0);
}

TEST_F(Restore, MakesKeysOfValues) {
    file.write("[Velquist]\n\"K\"=string:x\n[Velquist/W]\n");
    const std::string wanted = "[Velquist]\n\"W\"=string:y\n[Velquist/K]\n";
    std::ofstream(file.backupPath()) << wanted;
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), wanted);
}

TEST_F(Restore, OfAMalformedFile) {
    file.write("[Velquist]\nnonsense\n");
    std::ofstream(file.backupPath()) << "[Velquist]\n\"V\"=string:x\n";
    const auto result = run({"restore"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "+ [Velquist] \"V\"=string:x\n");
    EXPECT_EQ(result.err,
              "vqreg: line 2 cannot be read, and the backup may lack it: nonsense\n"
              "vqreg: the malformed text is kept in " +
                  file.path() + ".malformed\n");
    EXPECT_EQ(run({"get", "/", "V"}), prints("x\n"));
    EXPECT_EQ(vqtest::readFile(file.path() + ".malformed"), "[Velquist]\nnonsense\n");
}

TEST_F(Restore, OfAMalformedFileTellsWhatTheBackupLacks) {
    file.write(
        "[Velquist]\n\"V\"=string:new\n\"Before\"=dword:00000001\n\"Word\"=word:1\n\n"
        "[Velquist/K]\n\"Behind\"=string:x\n[Velquist/Open\n\"Inside\"=string:y\n");
    std::ofstream(file.backupPath()) << "[Velquist]\n\"V\"=string:old\n[Velquist/K]\n";
    const std::string before = file.read();
    const auto result = run({"restore", "-n"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "- [Velquist] \"Before\"=dword:00000001\n"
              "~ [Velquist] \"V\"=string:new -> string:old\n"
              "- [Velquist/K] \"Behind\"=string:x\n");
    EXPECT_EQ(result.err,
              "vqreg: the backup lacks [Velquist] \"Before\"=dword:00000001\n"
              "vqreg: the backup lacks [Velquist/K] \"Behind\"=string:x\n"
              "vqreg: line 4 cannot be read, and the backup may lack it: \"Word\"=word:1\n"
              "vqreg: line 8 cannot be read, and the backup may lack it: [Velquist/Open\n"
              "vqreg: line 9 cannot be read, and the backup may lack it: \"Inside\"=string:y\n");
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(run({"restore"}).err,
              result.err + "vqreg: the malformed text is kept in " + file.path() + ".malformed\n");
}

TEST_F(Restore, OfAFileFullOfNonsenseIsBrief) {
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += std::string(1000, 'x') + "\n";
    }
    file.write(text);
    std::ofstream(file.backupPath()) << "[Velquist]\n";
    const std::string told = run({"restore", "-n"}).err;
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 21);
    EXPECT_TRUE(told.ends_with("vqreg: 980 more lines cannot be read\n")) << told;
    EXPECT_LT(told.size(), 10000u);
}

TEST_F(Restore, KeepsEveryMalformedText) {
    std::ofstream(file.backupPath()) << "[Velquist]\n";
    for (const std::string text : {"first", "second"}) {
        file.write(text + "\n");
        EXPECT_EQ(run({"restore"}).status, 0);
    }
    EXPECT_EQ(vqtest::readFile(file.path() + ".malformed"), "first\n");
    EXPECT_EQ(vqtest::readFile(file.path() + ".malformed.1"), "second\n");
    EXPECT_EQ(file.files().size(), 4u);
}

TEST_F(Restore, WritesThroughNoLink) {
    const std::string precious = file.directory() + "/precious";
    std::ofstream(precious) << "mine";
    for (const char* const name : {".restored", ".malformed"}) {
        std::filesystem::create_symlink(precious, file.path() + name);
    }
    file.write("nonsense\n");
    std::ofstream(file.backupPath()) << "[Velquist]\n";
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(vqtest::readFile(precious), "mine");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(file.path())));
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(Restore, ByManyAtOnce) {
    std::ofstream(file.backupPath()) << "[Velquist]\n\"V\"=string:x\n";
    for (int round = 0; round < 10; ++round) {
        file.write("nonsense\n");
        std::vector<std::unique_ptr<vqtest::VqregProcess>> commands;
        const vqtest::Arguments arguments = {"--file", file.path(), "restore", "-f"};
        for (int i = 0; i < 4; ++i) {
            commands.push_back(std::make_unique<vqtest::VqregProcess>(arguments));
        }
        int done = 0;
        for (const auto& command : commands) {
            const vqtest::CommandResult result = command->finish();
            EXPECT_TRUE(result.status == 0 || result.status == 1) << result.err;
            done += result.status == 0 ? 1 : 0;
        }
        EXPECT_GE(done, 1);
        EXPECT_EQ(file.read(), "[Velquist]\n\"V\"=string:x\n");
        EXPECT_EQ(vqtest::readFile(file.path() + ".malformed"), "nonsense\n");
    }
}

TEST_F(Restore, ReachesProcessesThatHaveAnOlderTree) {
    make({"set", "/", "V", "backup"});
    make({"set", "/", "V", "old"});
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    file.write("nonsense\n");
    EXPECT_EQ(run({"--no-notify", "restore"}).status, 0);
    EXPECT_EQ(session.VQRegSetValue(*session.RootKey(), "W", 1ul), VQRegLib::REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"V\"=string:backup\n\"W\"=dword:00000001\n");
}

TEST_F(Restore, IsUndoneByASecondOne) {
    const std::string present = "[A]\n\"x\"=dword:00000001\n";
    file.write(present);
    std::ofstream(file.backupPath()) << "[B]\n\"y\"=dword:00000002\n";
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), "[B]\n\"y\"=dword:00000002\n");
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), present);
}

TEST_F(Restore, GoesOnWhenNobodyReads) {
    file.write("[Velquist]\n");
    std::string backup = "[Velquist]\n";
    for (int i = 0; i < 4000; ++i) {
        backup += "\"v" + std::to_string(10000 + i) + "\"=dword:00000001\n";
    }
    std::ofstream(file.backupPath()) << backup;
    vqtest::VqregProcess command({"--file", file.path(), "restore"});
    command.closeOutput();
    EXPECT_EQ(command.finish(), prints(""));
    EXPECT_EQ(file.read(), backup);
}

TEST_F(Restore, WaitsForAnotherOnlySoLong) {
    file.write("nonsense\n");
    std::ofstream(file.backupPath()) << "[Velquist]\n";
    const int other = ::open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    const auto result = run({"--timeout", "0.1", "restore"});
    EXPECT_EQ(result.status, 6);
    EXPECT_TRUE(
        result.err.ends_with("vqreg: " + file.path() + ": another process has locked the file\n"))
        << result.err;
    ::close(other);
}

TEST_F(Restore, OfAnotherRootKey) {
    file.write("nonsense\n");
    std::ofstream(file.backupPath()) << "[Other]\n";
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), "[Other]\n");
}

TEST_F(Restore, WithoutABackup) {
    file.write("[Velquist]\n");
    EXPECT_EQ(run({"restore"}), fails(3, file.backupPath() + ": there is no backup"));
    std::ofstream(file.backupPath()) << "nonsense\n";
    EXPECT_EQ(run({"restore"}).status, 4);
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(Restore, OfNothingIsRefused) {
    const std::string text = "[Velquist]\n\"V\"=string:x\n";
    for (const std::string backup : {"", "[]\n"}) {
        std::ofstream(file.backupPath()) << backup;
        for (const std::string& present : {text, std::string("nonsense\n")}) {
            file.write(present);
            for (const std::string option : {"--json", "-n", "-f"}) {
                EXPECT_EQ(run({"restore", option}),
                          fails(4, file.backupPath() +
                                       ": the backup names no key, and would replace everything "
                                       "by nothing"));
                EXPECT_EQ(file.read(), present);
                EXPECT_EQ(file.readBackup(), backup);
                EXPECT_EQ(file.files().size(), 2u);
            }
        }
    }
}
