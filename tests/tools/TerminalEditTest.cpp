// An editor at a terminal: what is asked around it, and what becomes of its text.
#include <gmock/gmock.h>

#include <csignal>
#include <string>

#include "tools/TerminalStore.h"

using testing::HasSubstr;
using vqtest::Arguments;
using vqtest::TempStore;
using vqtest::TerminalProcess;
using vqtest::TerminalResult;
using vqtest::terminal::kInterrupted;
using vqtest::terminal::kTerminalText;
using vqtest::terminal::shows;
using vqtest::terminal::Terminal;

// The editors are shell commands that get the name of the text as their last argument.
class TerminalEdit : public Terminal {
protected:
    TerminalProcess edit(const std::string& editor, Arguments arguments = {}) const {
        arguments.insert(arguments.begin(), "edit");
        return start(arguments, {{"VISUAL", editor}, {"TMPDIR", texts.directory()}});
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

    static constexpr const char* kChange = "sed -i s/string:b/string:c/";
    const std::string difference = "~ [Velquist/Sub] \"a\"=string:b -> string:c\n";
    const std::string question = "vqreg: Make these changes? [y/N] ";
    const std::string changed =
        "[Velquist]\n\"Port\"=dword:00000050\n[Velquist/Sub]\n\"a\"=string:c\n";
    TempStore texts;
};

TEST_F(TerminalEdit, AsksAfterTheDifference) {
    TerminalProcess command = edit(kChange);
    command.expect(question);
    EXPECT_EQ(kTerminalText, file.read());
    command.type("y\n");
    EXPECT_EQ(command.finish(), shows(difference + question + "y\n"));
    EXPECT_EQ(changed, file.read());
    EXPECT_EQ(kTerminalText, file.readBackup());
    EXPECT_EQ("", leftText());
}

TEST_F(TerminalEdit, KeepsTheTextWithoutAYes) {
    TerminalProcess command = edit(kChange);
    command.expect(question);
    command.type("n\n");
    const TerminalResult result = command.finish();
    ASSERT_NE("", leftText());
    EXPECT_EQ((TerminalResult{1,
                              difference + question +
                                  "n\nvqreg: nothing has been changed; the edited text is in " +
                                  leftText() + "\n",
                              "", ""}),
              result);
    EXPECT_EQ(kTerminalText, file.read());
    EXPECT_EQ(changed, vqtest::readFile(leftText()));
}

TEST_F(TerminalEdit, DoesNotAskWithYes) {
    EXPECT_EQ(edit(kChange, {"-y"}).finish(), shows(difference));
    EXPECT_EQ(changed, file.read());
}

TEST_F(TerminalEdit, OffersTheEditorAgainForAMalformedText) {
    // At the first call it spoils the text, at the second it mends it.
    const std::string again = texts.directory() + "/again";
    TerminalProcess command =
        edit("f() { if [ -e " + again + " ]; then sed -i s/bad/string:/ " + "\"$1\"; else touch " +
             again + "; sed -i s/string:b/badc/ \"$1\"; fi; }; f");
    command.expect(":4:9: error: ");
    command.expect(": the text is malformed\nvqreg: Edit the text again? [y/N] ");
    EXPECT_EQ(kTerminalText, file.read());
    command.type("y\n");
    command.expect("y\n" + difference + question);
    command.type("y\n");
    EXPECT_EQ(0, command.finish().status);
    EXPECT_EQ(changed, file.read());
    EXPECT_EQ("", leftText());
}

TEST_F(TerminalEdit, KeepsAMalformedTextThatIsNotEditedAgain) {
    TerminalProcess command = edit("sed -i s/string:b/bad/");
    command.expect("vqreg: Edit the text again? [y/N] ");
    command.type("n\n");
    const TerminalResult result = command.finish();
    EXPECT_EQ(4, result.status);
    EXPECT_THAT(result.screen, HasSubstr("; the edited text is in " + leftText() + "\n"));
    EXPECT_THAT(vqtest::readFile(leftText()), HasSubstr("\"a\"=bad"));
    EXPECT_EQ(kTerminalText, file.read());
}

TEST_F(TerminalEdit, RefusesWhenTheStoreChangesBeforeTheAnswer) {
    TerminalProcess command = edit(kChange);
    command.expect(question);
    make({"set", "Sub", "a", "elsewhere"});
    const std::string elsewhere = file.read();
    command.type("y\n");
    const TerminalResult result = command.finish();
    EXPECT_EQ((TerminalResult{1,
                              difference + question +
                                  "y\nvqreg: the store has changed meanwhile; nothing has been "
                                  "written; the edited text is in " +
                                  leftText() + "\n",
                              "", ""}),
              result);
    EXPECT_EQ(elsewhere, file.read());
}

TEST_F(TerminalEdit, TellsWhereTheTextIsWhenInterrupted) {
    TerminalProcess command = edit(kChange);
    command.expect(question);
    const TerminalResult result = command.interrupt();
    ASSERT_NE("", leftText());
    EXPECT_EQ((TerminalResult{-SIGINT,
                              difference + question + "\nvqreg: the edited text is in " +
                                  leftText() + "\n" + kInterrupted,
                              "", ""}),
              result);
    EXPECT_EQ(changed, vqtest::readFile(leftText()));
    EXPECT_EQ(kTerminalText, file.read());
}

// The shell looks for what it has caught between two commands, and not while it reads: an interrupt that comes
// just before the reading would wait for a line.
TEST_F(TerminalEdit, LeavesInterruptsToTheEditor) {
    TerminalProcess command = edit(
        "f() { trap 'caught=1; echo caught' INT; echo ready; "
        "until [ \"$caught\" ]; do sleep 0.02; done; read line; "
        "sed -i s/string:b/string:c/ \"$1\"; echo \"done\"; }; f");
    command.expect("ready\n");
    command.type(TerminalProcess::kInterrupt);
    command.expect("caught\n");
    command.type("go on\n");
    command.expect("done\n" + difference + question);
    command.type("y\n");
    EXPECT_EQ(0, command.finish().status);
    EXPECT_EQ(changed, file.read());
}
