// vqreg info, restore, clean and complete.
#include <VQRegLib.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <utime.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>

#include "tools/VqregStore.h"

using vqtest::fails;
using vqtest::prints;

class WholeStore : public vqtest::VqregStore {
protected:
    void age(const std::string& path) const {
        const utimbuf times{std::time(nullptr) - 120, std::time(nullptr) - 120};
        ::utime(path.c_str(), &times);
    }
};

TEST_F(WholeStore, Info) {
    file.write("[Velquist]\n\"V\"=string:x\n[Velquist/K]\n\"W\"=string:x\n[Other]\n");
    const std::regex before("file           " + file.path() +
                            "\n"
                            "why            given with --file\n"
                            "owner          root:root\n"
                            "mode           0\\d\\d\\d\n"
                            "size           58 bytes\n"
                            "modified       \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\n"
                            "backup         none\n"
                            "keys           3\n"
                            "values         2\n"
                            "change stamp   none\n"
                            "lock           free\n"
                            "open in        no process in sight\n"
                            "notification   0 alive, 0 stale\n");
    const auto first = run({"info"});
    EXPECT_EQ(first.status, 0);
    EXPECT_TRUE(std::regex_match(first.out, before)) << first.out;
    EXPECT_TRUE(file.sharedObjects().empty());

    make({"set", "/", "V", "y"});
    std::ofstream("/dev/shm/sem.REG-CHANGENOTIF-SEM-BF96420F-BEA8-4a58-AA2E-FA2A7AE7F5A5-99999");
    const VQRegLib::CRegLib session(file.path().c_str(), nullptr,
                                    VQRegLib::CRegLib::eLocationDefault, nullptr);
    const auto second = run({"info"});
    const std::regex after("(.*\n)*backup         " + file.path() +
                           "\\.bak, 58 bytes, .*\n(.*\n)*change stamp   [1-9]\\d+\n(.*\n)*"
                           "notification   0 alive, 1 stale\n");
    EXPECT_TRUE(std::regex_match(second.out, after)) << second.out;
}

TEST_F(WholeStore, InfoOfTheDefaultStore) {
    EXPECT_EQ(vqtest::runVqreg({"info"}), fails(3, "/etc/Velquist.cfg: the file does not exist"));
    EXPECT_EQ(vqtest::runVqreg({"set", "K", "V", "1"}).status, 0);
    EXPECT_NE(vqtest::runVqreg({"info"}).out.find(
                  "why            default, /velquist/etc does not exist\n"),
              std::string::npos);
}

TEST_F(WholeStore, InfoAsJson) {
    file.write("[Velquist]\n");
    const auto result = run({"info", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("\n  \"keys\": 1,\n  \"values\": 0,\n  \"stamp\": null,\n"
                              "  \"lock\": null,\n  \"openIn\": [],\n  \"openInHidden\": 0,\n  "
                              "\"olderLibrary\": [],\n  "
                              "\"semaphores\": {\n    \"alive\": 0,\n"
                              "    \"stale\": 0\n  }\n}\n"),
              std::string::npos)
        << result.out;
}

TEST_F(WholeStore, RestoreShowsAndBringsBack) {
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

TEST_F(WholeStore, RestoreReachesOtherTopLevelKeys) {
    file.write("[Velquist]\n\"V\"=string:new\n[Only]\n\"X\"=dword:00000001\n");
    const std::string wanted = "[Other]\n\"Y\"=binary:00\n[Velquist]\n\"V\"=string:old\n";
    std::ofstream(file.backupPath()) << wanted;
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), wanted);
    EXPECT_EQ(run({"restore", "--json", "-n"}).status, 0);
}

TEST_F(WholeStore, RestoreMakesKeysOfValues) {
    file.write("[Velquist]\n\"K\"=string:x\n[Velquist/W]\n");
    const std::string wanted = "[Velquist]\n\"W\"=string:y\n[Velquist/K]\n";
    std::ofstream(file.backupPath()) << wanted;
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), wanted);
}

TEST_F(WholeStore, RestoreOfAMalformedFile) {
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

// What is newer than the backup stands behind the fault as well as before it.
TEST_F(WholeStore, RestoreOfAMalformedFileTellsWhatTheBackupLacks) {
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

TEST_F(WholeStore, RestoreOfAFileFullOfNonsenseIsBrief) {
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

TEST_F(WholeStore, RestoreKeepsEveryMalformedText) {
    std::ofstream(file.backupPath()) << "[Velquist]\n";
    for (const std::string text : {"first", "second"}) {
        file.write(text + "\n");
        EXPECT_EQ(run({"restore"}).status, 0);
    }
    EXPECT_EQ(vqtest::readFile(file.path() + ".malformed"), "first\n");
    EXPECT_EQ(vqtest::readFile(file.path() + ".malformed.1"), "second\n");
    EXPECT_EQ(file.files().size(), 4u);
}

TEST_F(WholeStore, RestoreWritesThroughNoLink) {
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

TEST_F(WholeStore, RestoreByManyAtOnce) {
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

// A process that has not looked at the malformed text must not write over the restored one.
TEST_F(WholeStore, RestoreReachesProcessesThatHaveAnOlderTree) {
    make({"set", "/", "V", "backup"});
    make({"set", "/", "V", "old"});
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    file.write("nonsense\n");
    EXPECT_EQ(run({"--no-notify", "restore"}).status, 0);
    EXPECT_EQ(session.VQRegSetValue(*session.RootKey(), "W", 1ul), VQRegLib::REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"V\"=string:backup\n\"W\"=dword:00000001\n");
}

TEST_F(WholeStore, RestoreIsUndoneByASecondOne) {
    const std::string present = "[A]\n\"x\"=dword:00000001\n";
    file.write(present);
    std::ofstream(file.backupPath()) << "[B]\n\"y\"=dword:00000002\n";
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), "[B]\n\"y\"=dword:00000002\n");
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), present);
}

TEST_F(WholeStore, RestoreGoesOnWhenNobodyReads) {
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

TEST_F(WholeStore, RestoreWaitsForAnotherOnlySoLong) {
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

TEST_F(WholeStore, RestoreOfAnotherRootKey) {
    file.write("nonsense\n");
    std::ofstream(file.backupPath()) << "[Other]\n";
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), "[Other]\n");
}

// None of these waits for a writer that does not come.
TEST_F(WholeStore, ASpecialFileIsNoStore) {
    ASSERT_EQ(::mkfifo(file.path().c_str(), 0666), 0);
    const std::string why = file.path() + ": is a special file, not a file";
    EXPECT_EQ(run({"diff", "-", "-"}), fails(3, why));
    EXPECT_EQ(run({"check"}), fails(3, why));
    EXPECT_EQ(run({"import", "--dry-run", "-"}, "[Velquist]\n"), fails(3, why));
    EXPECT_EQ(run({"get", "K", "V"}), fails(3, why));
    EXPECT_EQ(run({"complete", "keys"}), prints(""));
}

TEST_F(WholeStore, RestoreWithoutABackup) {
    file.write("[Velquist]\n");
    EXPECT_EQ(run({"restore"}), fails(3, file.backupPath() + ": there is no backup"));
    std::ofstream(file.backupPath()) << "nonsense\n";
    EXPECT_EQ(run({"restore"}).status, 4);
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

// Nobody means a store without a key, and what the last change has left is the only text there is.
TEST_F(WholeStore, RestoreOfNothingIsRefused) {
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

TEST_F(WholeStore, CleanRemovesOldTemporaryFiles) {
    file.write("[Velquist]\n");
    const std::string old = file.path() + "0a1b2c3d-0123-4567-89ab-0123456789ab";
    const std::string young = file.path() + "0a1b2c3d-0123-4567-89ab-0123456789ac";
    const std::string others[] = {file.path() + ".old", file.path() + "0a1b2c3d",
                                  file.path() + "0A1b2c3d-0123-4567-89ab-0123456789ab",
                                  file.directory() + "/x0a1b2c3d-0123-4567-89ab-0123456789ab"};
    for (const std::string& path : others) {
        std::ofstream out(path);
        out.close();
        age(path);
    }
    std::ofstream(old).close();
    std::ofstream(young).close();
    age(old);
    // What a killed restore leaves.
    const std::string restored = file.path() + ".restored-a1B2c3";
    std::ofstream(restored).close();
    age(restored);
    EXPECT_EQ(run({"clean"}), prints(restored + "\n" + old + "\n"));
    std::ofstream(old).close();
    age(old);
    age(file.path());
    EXPECT_EQ(run({"clean", "-n"}), prints(old + "\n"));
    EXPECT_EQ(run({"clean", "--json", "-n"}), prints("[\n  \"" + old + "\"\n]\n"));
    EXPECT_EQ(run({"clean"}), prints(old + "\n"));
    EXPECT_EQ(run({"clean"}), prints(""));
    EXPECT_EQ(file.files().size(), 6u);
}

TEST_F(WholeStore, Complete) {
    make({"set", "Net/Dns", "First", "1"});
    make({"set", "Net/Dns", "Second", "1"});
    make({"mkkey", "Nest"});
    EXPECT_EQ(run({"complete", "keys"}), prints("Nest\nNet\nNet/Dns\n"));
    EXPECT_EQ(run({"complete", "keys", "net"}), prints("Net\nNet/Dns\n"));
    EXPECT_EQ(run({"complete", "values", "Net/Dns"}), prints("First\nSecond\n"));
    EXPECT_EQ(run({"complete", "values", "Net/Dns/"}), prints("First\nSecond\n"));
    EXPECT_EQ(run({"complete", "values", "net/dns", "s"}), prints("Second\n"));
    EXPECT_EQ(run({"complete", "values", "No"}), prints(""));
    EXPECT_EQ(vqtest::runVqreg({"--file", "/nowhere/x", "complete", "keys"}), prints(""));
}

TEST_F(WholeStore, ColorIsForTerminalsOrOnDemand) {
    make({"mkkey", "K"});
    EXPECT_EQ(run({"ls"}), prints("K/\n"));
    EXPECT_EQ(run({"--color", "always", "ls"}), prints("\x1b[1;34mK/\x1b[0m\n"));
    EXPECT_EQ(run({"ls", "--color=never"}), prints("K/\n"));
}
