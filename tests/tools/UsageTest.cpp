// How vqreg explains itself to those who mistype.
#include "tools/VqregStore.h"

using vqtest::fails;
using vqtest::runVqreg;

namespace {

constexpr const char* kUsage =
    "usage: vqreg [--file FILE] [--root NAME] [--timeout S] [--no-notify] [--sync] "
    "[--color WHEN] COMMAND ...";
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
         {"get",   "set",   "incr",   "rm",     "mkkey", "ls",      "tree",  "cp",
          "mv",    "batch", "export", "import", "apply", "diff",    "watch", "run",
          "check", "edit",  "browse", "notify", "info",  "restore", "clean", "help"}) {
        const auto help = runVqreg({command, "--help"});
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_EQ(help.err, "") << command;
        EXPECT_NE(help.out.find("usage: vqreg " + command), std::string::npos) << help.out;
        EXPECT_NE(runVqreg({"--help"}).out.find("\n  " + command + ' '), std::string::npos);
        EXPECT_EQ(runVqreg({"help", command}), help);
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

TEST(Usage, HelpIsACommandToo) {
    EXPECT_EQ(runVqreg({"help"}), runVqreg({"--help"}));
    EXPECT_EQ(runVqreg({"help", "exprot"}),
              misused("unknown command \"exprot\"; did you mean \"export\"?",
                      "usage: vqreg help [COMMAND]"));
    EXPECT_EQ(runVqreg({"help", "list"}), misused("unknown command \"list\"; did you mean \"ls\"?",
                                                  "usage: vqreg help [COMMAND]"));
    EXPECT_EQ(runVqreg({"help", "get", "set"}),
              misused("one argument too many: \"set\"", "usage: vqreg help [COMMAND]"));
}

TEST(Usage, WordsOfOtherProgramsForACommand) {
    const std::pair<std::string, std::string> meant[] = {
        {"list", "ls"},        {"delete", "rm"},  {"dump", "export"}, {"cat", "get"},
        {"show", "get"},       {"del", "rm"},     {"remove", "rm"},   {"create", "mkkey"},
        {"mkdir", "mkkey"},    {"update", "set"}, {"rename", "mv"},   {"undo", "restore"},
        {"validate", "check"}, {"LIST", "ls"}};
    for (const auto& [word, command] : meant) {
        EXPECT_EQ(
            runVqreg({word, "K"}),
            misused("unknown command \"" + word + "\"; did you mean \"" + command + "\"?", kUsage));
        EXPECT_EQ(runVqreg({command, "--help"}).status, 0);
    }
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
    EXPECT_EQ(runVqreg({"set", "K", "V", "--", "--root="}).status, 0);
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

// Each kind of fault that a command line can have, and nothing that only programmers understand.
TEST(Usage, BadArgumentsOfOptions) {
    const std::string ls = "usage: vqreg ls [-R] [-l] [--json] [-0] [KEY]";
    const std::string tree = "usage: vqreg tree [-L N] [--json] [KEY]";
    for (const std::string text : {"soon", "-1", "", "1e9", "nan", "3s"}) {
        EXPECT_EQ(runVqreg({"--timeout=" + text, "ls"}),
                  misused("--timeout must be a number from 0 to 1000000, not \"" + text + '"', ls));
    }
    EXPECT_EQ(runVqreg({"--color", "often", "ls"}),
              misused("--color needs one of auto,always,never, not \"often\"", ls));
    EXPECT_EQ(runVqreg({"--color=", "ls"}), misused("--color needs one of auto,always,never", ls));
    EXPECT_EQ(runVqreg({"--color", "{}#0", "ls"}),
              misused("--color needs one of auto,always,never, not \"{}#0\"", ls));
    EXPECT_EQ(runVqreg({"--root", "a", "--root", "b", "ls"}),
              misused("--root is given 2 times; once is right", ls));
    EXPECT_EQ(runVqreg({"ls", "--root"}), misused("--root needs NAME behind it", ls));
    for (const std::string text : {"0", "x", "99999999999999999999"}) {
        EXPECT_EQ(runVqreg({"tree", "-L", text}),
                  misused("-L needs a number from 1 to 100000, not \"" + text + '"', tree));
    }
    EXPECT_EQ(runVqreg({"tree", "-L"}), misused("-L needs N behind it", tree));
    EXPECT_EQ(runVqreg({"get", "--json=maybe", "K", "V"}),
              misused("--json cannot be \"maybe\"", kGetUsage));
    EXPECT_EQ(runVqreg({"get", "--raw", "--type", "K", "V"}),
              misused("--type and --raw exclude each other", kGetUsage));
    const auto type = runVqreg({"set", "-t", "qword", "K", "V", "1"});
    EXPECT_EQ(type.status, 2);
    EXPECT_EQ(type.err.substr(0, type.err.find('\n')),
              "vqreg: --type needs one of string,dword,binary, not \"qword\"");
}

TEST(Usage, OtherMistakes) {
    EXPECT_EQ(runVqreg({"--file", "", "ls"}), misused("--file needs the path of a file",
                                                      "usage: vqreg ls [-R] [-l] [--json] [-0] "
                                                      "[KEY]"));
    EXPECT_EQ(
        runVqreg({"rm", "-r", "K", "V"}),
        misused("-r is for keys; a value has nothing below it",
                "usage: vqreg rm [-r] [-f] [--if-exists] [--whole-store] [--json] [--verify S] KEY "
                "[NAME]"));
}
