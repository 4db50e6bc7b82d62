// vqreg check.
#include <gtest/gtest.h>

#include "support/TempStore.h"
#include "tools/VqregProcess.h"

using vqtest::CommandResult;
using vqtest::runVqreg;
using vqtest::TempStore;

TEST(CheckTest, IsSilentOnAGoodFile) {
    TempStore store;
    store.write("[Velquist]\n\"a\"=string:b\n");
    EXPECT_EQ((CommandResult{0, "", ""}), runVqreg({"check", store.path()}));
    EXPECT_EQ((CommandResult{0, "", ""}), runVqreg({"--file", store.path(), "check"}));
}

TEST(CheckTest, PrintsEveryFinding) {
    TempStore store;
    store.write("\"early\"=string:x\n[K]\n\"a\"=text:x\n\n\"b\"=string:1\n\"B\"=string:2\n[K/c\n");
    const std::string at = store.path() + ":";
    EXPECT_EQ(
        (CommandResult{
            1,
            at + "1:1: error: a value stands before the first key; write a key line above it\n" +
                at + "3:5: error: \"text\" is no type; write string, dword or binary\n" + at +
                "4:1: error: the line is empty; remove it\n" + at +
                "6:2: warning: the value replaces \"b\" on line 5: case makes no difference; "
                "remove one of the two lines, or choose another name\n" +
                at + "7:5: error: the key line has no \"]\"; write [PATH]\n",
            ""}),
        runVqreg({"check", store.path()}));
}

TEST(CheckTest, ReadsStandardInput) {
    EXPECT_EQ((CommandResult{1, "-:1:3: error: the key line has no \"]\"; write [PATH]\n", ""}),
              runVqreg({"check", "-"}, "[K"));
}

TEST(CheckTest, PrintsJsonLines) {
    EXPECT_EQ((CommandResult{1,
                             "{\"file\":\"-\",\"line\":1,\"column\":3,\"severity\":\"error\","
                             "\"what\":\"the key line has no \\\"]\\\"\",\"mend\":\"write "
                             "[PATH]\"}\n",
                             ""}),
              runVqreg({"check", "--json", "-"}, "[K"));
}

TEST(CheckTest, ColorsFindingsOnDemand) {
    EXPECT_EQ("\x1b[1;31m-:1:3: error: the key line has no \"]\"; write [PATH]\x1b[0m\n",
              runVqreg({"--color=always", "check", "-"}, "[K").out);
}

TEST(CheckTest, SaysThatTheFileIsMissing) {
    TempStore store;
    EXPECT_EQ((CommandResult{3, "", "vqreg: " + store.path() + ": No such file or directory\n"}),
              runVqreg({"check", store.path()}));
}
