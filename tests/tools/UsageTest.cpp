// How vqreg explains itself to those who mistype.
#include "tools/VqregStore.h"

using vqtest::fails;
using vqtest::runVqreg;

namespace {

constexpr const char* kUsage =
    "usage: vqreg [--file FILE] [--root NAME] [--timeout S] [--no-notify] [--color WHEN] "
    "COMMAND ...";
constexpr const char* kGetUsage =
    "usage: vqreg get [--type] [--raw] [--default V] [--json] [-0] KEY NAME";

vqtest::CommandResult misused(const std::string& message, const std::string& usage) {
    return fails(2, message + "\n" + usage);
}

}  // namespace

TEST(Usage, HelpAndVersionGoToStandardOutput) {
    for (const char* const option : {"--help", "-h"}) {
        const auto help = runVqreg({option});
        EXPECT_EQ(help.status, 0);
        EXPECT_EQ(help.err, "");
        EXPECT_NE(help.out.find(kUsage), std::string::npos);
    }
    const auto version = runVqreg({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("vqreg ", 0), 0u);
}

TEST(Usage, EveryCommandHasHelp) {
    for (const std::string command :
         {"get",   "set",   "incr",  "rm",     "mkkey",  "ls",      "tree",
          "cp",    "mv",    "batch", "export", "import", "apply",   "diff",
          "watch", "check", "edit",  "notify", "info",   "restore", "clean"}) {
        const auto help = runVqreg({command, "--help"});
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_EQ(help.err, "") << command;
        EXPECT_NE(help.out.find("usage: vqreg " + command), std::string::npos) << help.out;
        EXPECT_NE(runVqreg({"--help"}).out.find("\n  " + command + ' '), std::string::npos);
    }
}

TEST(Usage, HelpOfSetTellsTheRuleOfTypes) {
    EXPECT_NE(runVqreg({"set", "--help"}).out.find("For a new one, DATA is a dword if"),
              std::string::npos);
}

TEST(Usage, CompleteIsHidden) {
    EXPECT_EQ(runVqreg({"--help"}).out.find("complete"), std::string::npos);
}

TEST(Usage, MisspeltCommands) {
    EXPECT_EQ(runVqreg({"gte", "K", "V"}),
              misused("unknown command \"gte\"; did you mean \"get\"?", kUsage));
    EXPECT_EQ(runVqreg({"exprot"}),
              misused("unknown command \"exprot\"; did you mean \"export\"?", kUsage));
    EXPECT_EQ(runVqreg({"frobnicate"}), misused("unknown command \"frobnicate\"", kUsage));
}

TEST(Usage, MisspeltOptions) {
    EXPECT_EQ(runVqreg({"get", "--tpye", "K", "V"}),
              misused("unknown option \"--tpye\"; did you mean \"--type\"?", kGetUsage));
    EXPECT_EQ(runVqreg({"get", "--flie=x", "K", "V"}),
              misused("unknown option \"--flie=x\"; did you mean \"--file\"?", kGetUsage));
    EXPECT_EQ(runVqreg({"--colour=always", "ls"}),
              misused("unknown option \"--colour=always\"; did you mean \"--color\"?",
                      "usage: vqreg ls [-R] [-l] [--json] [-0] [KEY]"));
    EXPECT_EQ(runVqreg({"get", "--something-else", "K", "V"}),
              misused("unknown option \"--something-else\"; write -- before arguments that begin "
                      "with \"-\"",
                      kGetUsage));
    EXPECT_EQ(runVqreg({"get", "-x", "K", "V"}),
              misused("unknown option \"-x\"; write -- before arguments that begin with \"-\"",
                      kGetUsage));
    EXPECT_EQ(runVqreg({"get", "K", "++"}), misused("write -- before \"++\"", kUsage));
}

TEST(Usage, AnOptionMayHaveAnEmptyText) {
    // The argument behind it is its own.
    EXPECT_EQ(runVqreg({"--root=", "set", "K", "V", "x"}).status, 5);
    EXPECT_EQ(runVqreg({"get", "--default=", "K", "V"}), vqtest::prints("\n"));
    EXPECT_EQ(runVqreg({"set", "K", "V", "--", "--root="}), vqtest::prints(""));
    EXPECT_EQ(runVqreg({"get", "K", "V"}), vqtest::prints("--root=\n"));
    EXPECT_EQ(runVqreg({"get", "K", "--", "++"}).status, 1);
}

TEST(Usage, WrongNumberOfArguments) {
    EXPECT_EQ(runVqreg({}), misused("a command is needed; \"vqreg --help\" lists them", kUsage));
    EXPECT_EQ(runVqreg({"get", "K"}), misused("NAME is required", kGetUsage));
    EXPECT_EQ(runVqreg({"get", "K", "V", "X"}), misused("one argument too many: \"X\"", kGetUsage));
    EXPECT_EQ(runVqreg({"cp", "K"}).err,
              "vqreg: NEWKEY|NAME is required\n"
              "usage: vqreg cp [-f] KEY [NAME] NEWKEY [NEWNAME]\n");
}

TEST(Usage, BadArgumentsOfOptions) {
    EXPECT_EQ(runVqreg({"--timeout", "soon", "ls"}).status, 2);
    EXPECT_EQ(runVqreg({"--timeout", "-1", "ls"}).status, 2);
    EXPECT_EQ(runVqreg({"--color", "often", "ls"}).status, 2);
    EXPECT_EQ(runVqreg({"set", "-t", "qword", "K", "V", "1"}).status, 2);
    EXPECT_EQ(runVqreg({"tree", "-L", "0"}).status, 2);
    EXPECT_EQ(runVqreg({"--file", "", "ls"}), misused("--file needs the path of a file",
                                                      "usage: vqreg ls [-R] [-l] [--json] [-0] "
                                                      "[KEY]"));
    EXPECT_EQ(
        runVqreg({"rm", "-r", "K", "V"}),
        misused("-r is for keys; a value has nothing below it",
                "usage: vqreg rm [-r] [-f] [--if-exists] [--whole-store] [--json] [--verify S] KEY "
                "[NAME]"));
}
