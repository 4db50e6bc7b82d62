// vqreg batch.
#include "tools/VqregStore.h"

using vqtest::CommandResult;
using vqtest::fails;
using vqtest::prints;

namespace {

const std::string kText =
    "[Velquist]\n[Velquist/Net]\n\"Name\"=string:eth0\n\"Port\"=dword:00001F90\n"
    "[Velquist/Old]\n\"a\"=string:b\n";

const std::string kUsage = "\nusage: vqreg batch [--verify S]\n";

}  // namespace

class BatchCommands : public vqtest::VqregStore {
protected:
    BatchCommands() { file.write(kText); }

    CommandResult batch(const std::string& lines) const { return run({"batch"}, lines); }

    // The first line alone would change the store.
    void expectFails(int status, const std::string& line, const std::string& message) const {
        EXPECT_EQ(batch("set Net Port 1\n" + line + "\nset Net Name x\n"),
                  (CommandResult{status, "", "vqreg: line 2: " + message}));
        EXPECT_EQ(file.read(), kText);
        EXPECT_FALSE(file.backupExists());
    }
};

TEST_F(BatchCommands, AreOneWrite) {
    EXPECT_EQ(batch("set Net Port 81\nset -t string Net Alias 7\nmkkey New/Key\nincr Net Port 4\n"
                    "incr Net Starts\nmv Old New/Old\ncp Net Port New\nrm Net Name\n"),
              prints("85\n1\n"));
    EXPECT_EQ(file.read(),
              "[Velquist]\n[Velquist/Net]\n\"Alias\"=string:7\n\"Port\"=dword:00000055\n"
              "\"Starts\"=dword:00000001\n[Velquist/New]\n\"Port\"=dword:00000055\n"
              "[Velquist/New/Key]\n[Velquist/New/Old]\n\"a\"=string:b\n");
    EXPECT_EQ(file.readBackup(), kText);
}

TEST_F(BatchCommands, AreQuotedAsInAShell) {
    EXPECT_EQ(batch("# a comment\n\n  \t\n"
                    "set 'Net work/a\"b' \"two words\" 'it'\\''s # no comment'  # a comment\r\n"
                    "set Net \"A \\\"b\\\" \\\\ \\n\" x#y\n"
                    "set Net Empty ''"),
              (CommandResult{5, "",
                             "vqreg: line 5: a value name must not hold a double quote: "
                             "\"A \"b\" \\ \\n\", byte 3; nothing has been changed\n"}));
    EXPECT_EQ(batch("set 'Net work/a\"b' \"two words\" 'it'\\''s # no comment'  # a comment\r\n"
                    "set Net Te\\ xt x#y\nset Net Empty ''"),
              (CommandResult{0, "", "vqreg: made the key \"Net work/a\"b\"\n"}));
    EXPECT_EQ(run({"get", "Net work/a\"b", "two words"}), prints("it's # no comment\n"));
    EXPECT_EQ(run({"get", "Net", "Te xt"}), prints("x#y\n"));
    EXPECT_EQ(run({"get", "--type", "Net", "Empty"}), prints("string\n"));
}

TEST_F(BatchCommands, DoNothingWhenOneFails) {
    const std::string end = "; nothing has been changed\n";
    expectFails(1, "rm Net Missing",
                "the value \"Missing\" of the key \"Net\" does not exist" + end);
    expectFails(5, "rm Old", "the key \"Old\" is not empty; -r removes it with all below it" + end);
    expectFails(
        5, "set Net Port 8o80",
        "a dword must be a number from 0 to 4294967295, in decimal or with 0x: \"8o80\"" + end);
    expectFails(1, "set --if x Net Name y",
                "the value \"Name\" of the key \"Net\" is \"eth0\", not \"x\"" + end);
    expectFails(
        2, "ste Net Port 1",
        "unknown command \"ste\"; did you mean \"set\"?; nothing has been changed" + kUsage);
    expectFails(2, "set Net Port", "DATA is required; nothing has been changed" + kUsage);
    expectFails(2, "export", "unknown command \"export\"; nothing has been changed" + kUsage);
    expectFails(
        2, "delete Net Port",
        "unknown command \"delete\"; did you mean \"rm\"?; nothing has been changed" + kUsage);
    expectFails(2, "dump Net", "unknown command \"dump\"; nothing has been changed" + kUsage);
    expectFails(2, "set --json Net Port 1",
                "--json and --verify are not for single lines; nothing has been changed" + kUsage);
    expectFails(
        2, "set -t binary Net Mac -",
        "standard input holds the commands; name a file with @; nothing has been changed" + kUsage);
    expectFails(4, "set Net 'Port 1", "a ' is not closed" + end);
    expectFails(4, "set Net \"Port 1", "a \" is not closed" + end);
    expectFails(4, "set Net Port \\", "a \\ stands at the end; a command has one line" + end);
}

TEST_F(BatchCommands, TellOfNewKeysOnceTheyAreThere) {
    EXPECT_EQ(batch("set New/Key a 1\nset New/Key b 2\nrm Nothing\n"),
              fails(1, "line 3: the key \"Nothing\" does not exist; nothing has been changed"));
    EXPECT_EQ(batch("set New/Key a 1\nset New/Key b 2\nincr New/Key b\n"),
              (CommandResult{0, "3\n", "vqreg: made the key \"New/Key\"\n"}));
}

TEST_F(BatchCommands, MayBeNone) {
    EXPECT_EQ(batch(""), prints(""));
    EXPECT_EQ(batch("# nothing\n"), prints(""));
    EXPECT_EQ(file.read(), kText);
    EXPECT_FALSE(file.backupExists());
}

TEST_F(BatchCommands, MayReplaceAKeyByAValue) {
    EXPECT_EQ(batch("rm -r Old\nset / Old x\nrm Net Port\nmkkey Net/Port\n"), prints(""));
    EXPECT_EQ(file.read(),
              "[Velquist]\n\"Old\"=string:x\n[Velquist/Net]\n\"Name\"=string:eth0\n"
              "[Velquist/Net/Port]\n");
}

TEST_F(BatchCommands, LeaveTheLockFree) {
    EXPECT_EQ(batch("set Net Port 1\nrm Nothing\n").status, 1);
    EXPECT_EQ(run({"--timeout", "1", "set", "Net", "Port", "2"}), prints(""));
}
