// vqreg diff, and the differences that other commands show too.
#include <gtest/gtest.h>

#include "support/TempStore.h"
#include "tools/VqregProcess.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"

using vqtest::CommandResult;
using vqtest::runVqreg;
using vqtest::TempStore;

namespace {

const std::string kBefore =
    "[Velquist]\n"
    "\"Gone\"=string:x\n"
    "\"Port\"=dword:00000050\n"
    "\"Same\"=binary:00\n"
    "[Velquist/Old]\n"
    "\"a\"=string:b\n";

const std::string kAfter =
    "[velquist]\n"
    "\"port\"=dword:00001F90\n"
    "\"same\"=binary:00\n"
    "[Velquist/New]\n"
    "\"c\"=string:\td\n";

const std::string kDifference =
    "- [Velquist] \"Gone\"=string:x\n"
    "~ [Velquist] \"port\"=dword:00000050 -> dword:00001F90\n"
    "+ [Velquist/New]\n"
    "+ [Velquist/New] \"c\"=string:\\x09d\n"
    "- [Velquist/Old]\n"
    "- [Velquist/Old] \"a\"=string:b\n";

vqreg::Key top(const std::string& text) {
    return vqreg::parseConfigText(text).top;
}

}  // namespace

TEST(DiffTest, PrintsEachDifference) {
    TempStore store;
    TempStore other;
    store.write(kBefore);
    other.write("[Velquist]\n" + kAfter.substr(11));
    EXPECT_EQ((CommandResult{1, kDifference, ""}), runVqreg({"diff", store.path(), other.path()}));
}

TEST(DiffTest, TellsSameTreesByTheExitCode) {
    TempStore store;
    TempStore other;
    store.write("[K]\n\"a\"=dword:0000001F\n\"b\"=string:x\n");
    other.write("[k]\n\"B\"=string:x\n\"A\"=dword:0000001f\n");
    EXPECT_EQ((CommandResult{0, "", ""}), runVqreg({"diff", store.path(), other.path()}));
}

TEST(DiffTest, ComparesTheStoreWithItsBackup) {
    TempStore store;
    store.write("[Velquist]\n");
    ASSERT_EQ(0, runVqreg({"--file", store.path(), "set", "/", "a", "b", "-t", "string"}).status);
    EXPECT_EQ((CommandResult{1, "+ [Velquist] \"a\"=string:b\n", ""}),
              runVqreg({"--file", store.path(), "diff", store.backupPath(), "-"}));
}

TEST(DiffTest, ComparesExportedKeys) {
    TempStore store;
    store.write("[Velquist]\n[Velquist/Net]\n\"a\"=string:b\n");
    TempStore exported;
    exported.write(runVqreg({"--file", store.path(), "export", "Net"}).out);
    TempStore other;
    other.write("[Velquist/Net]\n\"a\"=string:c\n");
    EXPECT_EQ((CommandResult{1, "~ [Velquist/Net] \"a\"=string:b -> string:c\n", ""}),
              runVqreg({"diff", exported.path(), other.path()}));
}

TEST(DiffTest, PrintsJsonLines) {
    TempStore store;
    TempStore other;
    store.write("[K]\n\"a\"=dword:00000001\n\"b\"=string:x\n");
    other.write("[K]\n\"a\"=binary:01\n[K/Sub]\n");
    EXPECT_EQ(
        (CommandResult{
            1,
            "{\"event\":\"changed\",\"root\":\"K\",\"key\":\"\",\"name\":\"a\",\"old\":{\"type\":"
            "\"dword\",\"value\":1},\"new\":{\"type\":\"binary\",\"value\":\"01\"}"
            "}\n"
            "{\"event\":\"deleted\",\"root\":\"K\",\"key\":\"\",\"name\":\"b\",\"old\":{\"type\":"
            "\"string\",\"value\":\"x\"}}\n"
            "{\"event\":\"created\",\"root\":\"K\",\"key\":\"Sub\"}\n",
            ""}),
        runVqreg({"diff", "--json", store.path(), other.path()}));
}

TEST(DiffTest, RefusesMalformedAndMissingFiles) {
    TempStore store;
    store.write("[K]\nbad\n\n");
    EXPECT_EQ((CommandResult{4, "",
                             store.path() +
                                 ":2:1: error: this is no key line and no value line; "
                                 "write [PATH] or \"NAME\"=TYPE:DATA\n" +
                                 store.path() + ":3:1: error: the line is empty; remove it\n" +
                                 "vqreg: " + store.path() + ": the text is malformed\n"}),
              runVqreg({"diff", store.path(), store.path()}));
    const std::string missing = store.directory() + "/missing";
    EXPECT_EQ((CommandResult{3, "", "vqreg: " + missing + ": No such file or directory\n"}),
              runVqreg({"diff", missing, missing}));
    EXPECT_EQ(
        (CommandResult{3, "", "vqreg: " + store.directory() + ": is a directory, not a file\n"}),
        runVqreg({"diff", store.directory(), missing}));
}

TEST(DifferenceTest, MergesTrees) {
    const vqreg::Key base = top("[K]\n\"a\"=string:1\n\"b\"=string:2\n[K/x]\n\"c\"=string:3\n");
    const vqreg::Key more = top("[K]\n\"b\"=string:9\n[K/X]\n\"d\"=string:4\n[K/y]\n");
    EXPECT_EQ("[K]\n\"a\"=string:1\n\"b\"=string:9\n[K/x]\n\"c\"=string:3\n\"d\"=string:4\n[K/y]\n",
              composeConfigText(merged(base, more)));
}

TEST(DifferenceTest, NamesKeysInThePlaceOfValues) {
    const vqreg::Key base = top("[K]\n\"a\"=string:1\n[K/b]\n[K/c]\n\"d\"=string:2\n");
    const vqreg::Key more = top("[K]\n\"B\"=string:1\n[K/a]\n[K/c]\n[K/c/d]\n");
    EXPECT_EQ((std::vector<std::string>{"[K] \"B\"", "[K] \"a\"", "[K/c] \"d\""}),
              kindConflicts(base, more));
}
