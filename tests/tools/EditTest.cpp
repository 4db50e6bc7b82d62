// vqreg edit, with shell commands in the place of an editor.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/TempStore.h"
#include "tools/VqregProcess.h"

using vqtest::CommandResult;
using vqtest::runVqreg;
using vqtest::TempStore;

namespace {

const std::string kText =
    "[Velquist]\n"
    "\"Port\"=dword:00000050\n"
    "[Velquist/Sub]\n"
    "\"a\"=string:b\n";

class EditTest : public testing::Test {
protected:
    EditTest() { store.write(kText); }

    // The editor gets the name of the text as its last argument.
    CommandResult edit(const std::string& editor, std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"--file", store.path(), "edit"});
        return runVqreg(arguments, "", {{"VISUAL", editor}, {"TMPDIR", texts.directory()}});
    }

    // An editor that puts another text into the file.
    std::string writing(const std::string& text) {
        texts.write(text);
        return "cp " + texts.path();
    }

    // The one text that the command has left; empty when there is none.
    std::string leftText() const {
        for (const std::string& name : texts.files()) {
            if (name.starts_with("vqreg-")) {
                return texts.directory() + "/" + name;
            }
        }
        return "";
    }

    TempStore store;
    TempStore texts;
};

}  // namespace

TEST_F(EditTest, MakesTheChangesInOneWrite) {
    const std::string text = "[Velquist]\n\"Port\"=dword:00001F90\n[Velquist/New]\n";
    EXPECT_EQ((CommandResult{0, "",
                             "~ [Velquist] \"Port\"=dword:00000050 -> dword:00001F90\n"
                             "+ [Velquist/New]\n"
                             "- [Velquist/Sub]\n"
                             "- [Velquist/Sub] \"a\"=string:b\n"}),
              edit(writing(text)));
    EXPECT_EQ(text, store.read());
    EXPECT_EQ(kText, store.readBackup());
    EXPECT_EQ("", leftText());
}

TEST_F(EditTest, ShowsTheEditorAPrivateTextOfTheKey) {
    EXPECT_EQ((CommandResult{0, "", "vqreg: nothing has been changed\n"}),
              edit("f() { stat -c %a \"$1\" >" + texts.directory() + "/mode; cp \"$1\" " +
                       texts.path() + "; }; f",
                   {"Sub"}));
    EXPECT_EQ("[Velquist]\n[Velquist/Sub]\n\"a\"=string:b\n", texts.read());
    EXPECT_EQ("600\n", vqtest::readFile(texts.directory() + "/mode"));
    EXPECT_FALSE(store.backupExists());
    EXPECT_EQ("", leftText());
}

TEST_F(EditTest, ChangesOneKey) {
    EXPECT_EQ((CommandResult{0, "", "~ [Velquist/Sub] \"a\"=string:b -> string:c\n"}),
              edit("sed -i s/string:b/string:c/", {"Sub"}));
    EXPECT_EQ("[Velquist]\n\"Port\"=dword:00000050\n[Velquist/Sub]\n\"a\"=string:c\n",
              store.read());
}

TEST_F(EditTest, UsesEditorWithoutVisual) {
    EXPECT_EQ(0, runVqreg({"--file", store.path(), "edit"}, "",
                          {{"VISUAL", ""}, {"EDITOR", "sed -i s/string:b/string:c/"}})
                     .status);
    EXPECT_NE(std::string::npos, store.read().find("string:c"));
}

TEST_F(EditTest, LeavesAMalformedText) {
    const CommandResult result = edit(writing("[Velquist]\nbad\n"));
    const std::string left = leftText();
    ASSERT_NE("", left);
    EXPECT_EQ((CommandResult{4, "",
                             left +
                                 ":2:1: error: this is no key line and no value line; write "
                                 "[PATH] or \"NAME\"=TYPE:DATA\n" +
                                 "vqreg: " + left +
                                 ": the text is malformed; the edited text is "
                                 "in " +
                                 left + "\n"}),
              result);
    EXPECT_EQ("[Velquist]\nbad\n", vqtest::readFile(left));
    EXPECT_EQ(kText, store.read());
}

// What an editor leaves that finds no room; to delete all, one leaves the key's own line.
TEST_F(EditTest, RefusesAnEmptyText) {
    const CommandResult result = edit("truncate -s 0", {"-y"});
    ASSERT_NE("", leftText());
    EXPECT_EQ(5, result.status);
    EXPECT_EQ("vqreg: " + leftText() + ": the text has no key line; the edited text is in " +
                  leftText() + "\n",
              result.err);
    EXPECT_EQ(kText, store.read());
    EXPECT_EQ(0, edit(writing("[Velquist]\n"), {"-y"}).status);
    EXPECT_EQ("[Velquist]\n", store.read());
}

TEST_F(EditTest, RefusesWhenTheStoreHasChangedMeanwhile) {
    const std::string meanwhile = std::string(VQREG_COMMAND_PATH) + " --file " + store.path() +
                                  " set Sub a -t string elsewhere";
    const CommandResult result =
        edit("f() { " + meanwhile + " && sed -i s/string:b/string:c/ \"$1\"; }; f");
    const std::string left = leftText();
    EXPECT_EQ((CommandResult{1, "",
                             "~ [Velquist/Sub] \"a\"=string:b -> string:c\n"
                             "vqreg: the store has changed meanwhile; nothing has been written; "
                             "the edited text is in " +
                                 left + "\n"}),
              result);
    EXPECT_NE(std::string::npos, store.read().find("string:elsewhere"));
    EXPECT_NE(std::string::npos, vqtest::readFile(left).find("string:c"));
}

TEST_F(EditTest, SeesWhatIsDeletedMeanwhile) {
    const std::string meanwhile =
        std::string(VQREG_COMMAND_PATH) + " --file " + store.path() + " rm -f Sub a";
    EXPECT_EQ(1,
              edit("f() { " + meanwhile + " && sed -i s/string:b/string:c/ \"$1\"; }; f").status);
    EXPECT_EQ("[Velquist]\n\"Port\"=dword:00000050\n[Velquist/Sub]\n", store.read());
}

TEST_F(EditTest, LeavesTheTextWhenTheEditorFails) {
    const CommandResult result = edit("sh -c 'exit 3' sh");
    EXPECT_EQ((CommandResult{1, "",
                             "vqreg: the editor \"sh -c 'exit 3' sh\" failed with status 3; the "
                             "edited text is in " +
                                 leftText() + "\n"}),
              result);
    EXPECT_EQ(kText, store.read());
}

TEST_F(EditTest, NamesNoTextThatTheEditorHasRemoved) {
    const CommandResult result = edit("rm -f");
    EXPECT_EQ(3, result.status);
    EXPECT_EQ(std::string::npos, result.err.find("the edited text is in")) << result.err;
    EXPECT_EQ(kText, store.read());
}

TEST_F(EditTest, SaysThatAKeyIsMissing) {
    EXPECT_EQ((CommandResult{1, "", "vqreg: the key \"Nothing\" does not exist\n"}),
              edit("true", {"Nothing"}));
}
