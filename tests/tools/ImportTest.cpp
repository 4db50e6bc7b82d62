// vqreg import.
#include <gtest/gtest.h>

#include "support/TempStore.h"
#include "tools/VqregProcess.h"

using vqtest::CommandResult;
using vqtest::runVqreg;
using vqtest::TempStore;

namespace {

const std::string kText =
    "[Velquist]\n"
    "\"Keep\"=string:x\n"
    "\"Port\"=dword:00000050\n"
    "[Velquist/Old]\n"
    "\"a\"=string:b\n";

const std::string kInput =
    "[Velquist]\n"
    "\"Port\"=dword:00001F90\n"
    "[Velquist/New]\n"
    "\"c\"=binary:00FF\n";

const std::string kMerged =
    "[Velquist]\n"
    "\"Keep\"=string:x\n"
    "\"Port\"=dword:00001F90\n"
    "[Velquist/New]\n"
    "\"c\"=binary:00FF\n"
    "[Velquist/Old]\n"
    "\"a\"=string:b\n";

class ImportTest : public testing::Test {
protected:
    ImportTest() { store.write(kText); }

    CommandResult import(std::vector<std::string> arguments, const std::string& input) {
        arguments.insert(arguments.begin(), {"--file", store.path(), "import"});
        arguments.emplace_back("-");
        return runVqreg(arguments, input);
    }

    // Nothing has been written, not even the same text again.
    void expectUntouched() {
        EXPECT_EQ(kText, store.read());
        EXPECT_FALSE(store.backupExists());
    }

    TempStore store;
};

}  // namespace

TEST_F(ImportTest, MergesByDefault) {
    EXPECT_EQ((CommandResult{0, "", ""}), import({}, kInput));
    EXPECT_EQ(kMerged, store.read());
}

TEST_F(ImportTest, IsOneWrite) {
    EXPECT_EQ(0, import({"--merge"}, kInput).status);
    EXPECT_EQ(kText, store.readBackup());
}

TEST_F(ImportTest, WritesNothingWhenNothingIsNew) {
    EXPECT_EQ((CommandResult{0, "", ""}), import({}, kText));
    EXPECT_EQ((CommandResult{0, "", ""}), import({}, ""));
    expectUntouched();
}

TEST_F(ImportTest, Replaces) {
    EXPECT_EQ((CommandResult{0, "", ""}), import({"--replace"}, kInput));
    EXPECT_EQ(kInput, store.read());
}

TEST_F(ImportTest, ReplacesOneKey) {
    const std::string input = "[Velquist]\n[Velquist/Old]\n[Velquist/Old/x]\n";
    EXPECT_EQ((CommandResult{0, "", ""}), import({"--replace", "--key", "Old"}, input));
    EXPECT_EQ(
        "[Velquist]\n\"Keep\"=string:x\n\"Port\"=dword:00000050\n[Velquist/Old]\n"
        "[Velquist/Old/x]\n",
        store.read());
}

TEST_F(ImportTest, ReplacesKeysByValuesAndValuesByKeys) {
    const std::string input = "[Velquist]\n\"Old\"=string:1\n[Velquist/Keep]\n[Velquist/Keep/a]\n";
    EXPECT_EQ((CommandResult{0, "", ""}), import({"--replace"}, input));
    EXPECT_EQ(input, store.read());
}

TEST_F(ImportTest, DoesNotMergeKeysWithValues) {
    const std::string input = "[Velquist]\n\"New\"=string:1\n\"Old\"=string:1\n[Velquist/keep]\n";
    EXPECT_EQ((CommandResult{5, "",
                             "vqreg: a key here is a value there: [Velquist] \"Old\"\n"
                             "vqreg: a key here is a value there: [Velquist] \"keep\"\n"
                             "vqreg: -: keys and values cannot be merged; nothing has been "
                             "changed\n"}),
              import({}, input));
    expectUntouched();
}

TEST_F(ImportTest, ShowsTheChangesOfADryRun) {
    EXPECT_EQ((CommandResult{1,
                             "~ [Velquist] \"Port\"=dword:00000050 -> dword:00001F90\n"
                             "+ [Velquist/New]\n"
                             "+ [Velquist/New] \"c\"=binary:00FF\n",
                             ""}),
              import({"--dry-run"}, kInput));
    EXPECT_EQ((CommandResult{1,
                             "- [Velquist] \"Keep\"=string:x\n"
                             "~ [Velquist] \"Port\"=dword:00000050 -> dword:00001F90\n"
                             "+ [Velquist/New]\n"
                             "+ [Velquist/New] \"c\"=binary:00FF\n"
                             "- [Velquist/Old]\n"
                             "- [Velquist/Old] \"a\"=string:b\n",
                             ""}),
              import({"--dry-run", "--replace"}, kInput));
    expectUntouched();
}

TEST(ImportEmptyTest, MakesTheStore) {
    TempStore store;
    EXPECT_EQ((CommandResult{0, "", ""}),
              runVqreg({"--file", store.path(), "import", "-"}, kInput));
    EXPECT_EQ(kInput, store.read());
}

TEST(ImportEmptyTest, ADryRunMakesNothing) {
    TempStore store;
    EXPECT_EQ(1, runVqreg({"--file", store.path(), "import", "--dry-run", "-"}, kInput).status);
    EXPECT_TRUE(store.files().empty());
}

TEST_F(ImportTest, ReadsJson) {
    const std::string input =
        "{\"values\": {\"Port\": {\"type\": \"dword\", \"value\": 8080}},\n"
        " \"keys\": {\"New\": {\"values\": {\"c\": {\"type\": \"binary\", \"value\": \"00ff\"}}}}}";
    for (const std::string start : {"", " \n\t", "\xEF\xBB\xBF"}) {
        store.write(kText);
        EXPECT_EQ((CommandResult{0, "", ""}), import({}, start + input));
        EXPECT_EQ(kMerged, store.read());
    }
}

TEST_F(ImportTest, PutsAnExportedKeyWhereItWas) {
    const std::string json = runVqreg({"--file", store.path(), "export", "--json", "Old"}).out;
    TempStore other;
    EXPECT_EQ((CommandResult{0, "", ""}), runVqreg({"--file", other.path(), "import", "-"}, json));
    EXPECT_EQ("[Velquist]\n[Velquist/Old]\n\"a\"=string:b\n", other.read());
    EXPECT_EQ(0,
              runVqreg({"--file", other.path(), "import", "--json", "--key", "Copy/x", "-"}, json)
                  .status);
    EXPECT_EQ(
        "[Velquist]\n[Velquist/Copy]\n[Velquist/Copy/x]\n\"a\"=string:b\n[Velquist/Old]\n"
        "\"a\"=string:b\n",
        other.read());
}

TEST_F(ImportTest, KeepsBytesThatAreNotUtf8) {
    store.write("[Velquist]\n\"caf\xE9\"=string:\xFF\n");
    const std::string json = runVqreg({"--file", store.path(), "export", "--json"}).out;
    TempStore other;
    EXPECT_EQ(0, runVqreg({"--file", other.path(), "import", "--json", "-"}, json).status);
    EXPECT_EQ(store.read(), other.read());
}

TEST_F(ImportTest, RefusesMalformedTexts) {
    EXPECT_EQ((CommandResult{4, "",
                             "-:2:5: error: \"text\" is no type; write string, dword or binary\n"
                             "-:3:1: error: the line is empty; remove it\n"
                             "vqreg: -: the text is malformed\n"}),
              import({}, "[Velquist]\n\"a\"=text:x\n\n\"b\"=string:y\n"));
    EXPECT_EQ((CommandResult{4, "",
                             "-:1:4: error: the member \"a\" is unknown; remove it\n"
                             "vqreg: -: the text is malformed\n"}),
              import({}, "{\"a\": 1}"));
    expectUntouched();
}

TEST_F(ImportTest, RefusesWhatBreaksARule) {
    const CommandResult result =
        import({},
               "{\"values\": {\"ok\": {\"type\": \"string\", \"value\": \"x\"},\n"
               "\"a:b\": {\"type\": \"string\", \"value\": \"x\"}, "
               "\"c\": {\"type\": \"string\", \"value\": \"1\\n2\"}}, \"keys\": {\"d/e\": {}}}");
    EXPECT_EQ(
        (CommandResult{5, "",
                       "vqreg: a value name must not hold a colon: \"a:b\", byte 2, in the key "
                       "\"/\"\n"
                       "vqreg: a text must not hold a line feed: \"1\\x0A2\", byte 2, in the key "
                       "\"/\"\n"
                       "vqreg: a key name must not hold a slash: \"d/e\", byte 2, in the key "
                       "\"/\"\n"}),
        result);
    expectUntouched();
}

TEST_F(ImportTest, RefusesTextsThatTheFileWouldCut) {
    for (const std::string& line :
         {std::string("\"V\"=string:a\rb\n"), std::string("\"V\"=string:a\0b\n", 15)}) {
        const CommandResult result = import({}, "[Velquist]\n" + line);
        EXPECT_EQ(5, result.status);
        EXPECT_NE(std::string::npos, result.err.find("-:2:13: warning: ")) << result.err;
        EXPECT_EQ(kText, store.read());
    }
    // An ordinary line end of other systems is none of these.
    EXPECT_EQ(0, import({}, "[Velquist]\r\n\"V\"=string:a\r\n").status);
}

TEST_F(ImportTest, WantsNoLinesOfTheKeysAbove) {
    EXPECT_EQ((CommandResult{0, "", ""}), import({"--key", "A/B"}, "[Velquist/A/B]\n"));
}

TEST_F(ImportTest, RefusesTextsAboutOtherKeys) {
    const std::string message = "; leave out the rest, or name another key or root key\n";
    EXPECT_EQ(
        (CommandResult{5, "", "vqreg: -: the text has more than the key [Velquist]" + message}),
        import({}, "[Other]\n"));
    EXPECT_EQ(
        (CommandResult{5, "", "vqreg: -: the text has more than the key [Velquist/Old]" + message}),
        import({"--key", "Old"}, kText));
    expectUntouched();
}

TEST_F(ImportTest, SaysThatTheInputIsMissing) {
    EXPECT_EQ((CommandResult{3, "", "vqreg: /nowhere: No such file or directory\n"}),
              runVqreg({"--file", store.path(), "import", "/nowhere"}));
    expectUntouched();
}

TEST_F(ImportTest, MergeAndReplaceExcludeEachOther) {
    EXPECT_EQ(2, import({"--merge", "--replace"}, kInput).status);
    expectUntouched();
}
