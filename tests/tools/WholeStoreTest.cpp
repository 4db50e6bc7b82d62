// vqreg info, clean and complete.
#include <VQRegLib.h>
#include <sys/stat.h>
#include <utime.h>

#include <filesystem>
#include <fstream>
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

// What is newer than the backup stands behind the fault as well as before it.
// A process that has not looked at the malformed text must not write over the restored one.
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

// Nobody means a store without a key, and what the last change has left is the only text there is.
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
