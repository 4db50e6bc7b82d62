// What the command asks at a terminal before something is lost.
#include <gmock/gmock.h>

#include <csignal>
#include <string>

#include "tools/TerminalStore.h"

using testing::HasSubstr;
using testing::Not;
using vqtest::TerminalProcess;
using vqtest::TerminalResult;
using vqtest::terminal::declined;
using vqtest::terminal::kInterrupted;
using vqtest::terminal::kTerminalText;
using vqtest::terminal::shows;
using vqtest::terminal::Terminal;

class TerminalRm : public Terminal {
protected:
    const std::string question = "vqreg: remove the value \"a\" of the key \"Sub\"? [y/N] ";
};

TEST_F(TerminalRm, AsksBeforeItRemovesAValue) {
    EXPECT_EQ(answer({"rm", "Sub", "a"}, question, "y\n"), shows(question + "y\n"));
    EXPECT_EQ("[Velquist]\n\"Port\"=dword:00000050\n[Velquist/Sub]\n", file.read());
}

TEST_F(TerminalRm, TellsHowMuchIsBelowAKey) {
    const std::string ofKey = "vqreg: remove the root key with 1 key and 2 values below it? [y/N] ";
    EXPECT_EQ(answer({"rm", "-r", "--whole-store", "/"}, ofKey, "yes\n"), shows(ofKey + "yes\n"));
    EXPECT_EQ("[Velquist]\n", file.read());
}

TEST_F(TerminalRm, TakesEveryOtherAnswerForNo) {
    for (const std::string keys : {"n\n", "\n", "yo\n", "no\n"}) {
        EXPECT_EQ(answer({"rm", "Sub", "a"}, question, keys), declined(question + keys, "removed"));
    }
    EXPECT_EQ(kTerminalText, file.read());
}

TEST_F(TerminalRm, TakesTheEndOfInputForNoAndEndsTheLine) {
    EXPECT_EQ(answer({"rm", "Sub", "a"}, question, TerminalProcess::kEndOfInput),
              declined(question + "\n", "removed"));
    EXPECT_EQ(kTerminalText, file.read());
}

TEST_F(TerminalRm, DoesNotAskWithForce) {
    EXPECT_EQ(start({"rm", "-f", "Sub", "a"}).finish(), shows(""));
    EXPECT_THAT(file.read(), Not(HasSubstr("\"a\"")));
}

TEST_F(TerminalRm, AsksOnStandardErrorOnly) {
    TerminalProcess command = start({"rm", "Sub", "a"}, {}, {.out = false});
    command.expect(question);
    command.type("y\n");
    EXPECT_EQ(command.finish(), shows(question + "y\n"));
}

TEST_F(TerminalRm, DoesNotAskWhenStandardInputIsNoTerminal) {
    EXPECT_EQ(start({"rm", "Sub", "a"}, {}, {.in = false}).finish(), shows(""));
    EXPECT_THAT(file.read(), Not(HasSubstr("\"a\"")));
}

TEST_F(TerminalRm, LeavesTheStoreWhenInterrupted) {
    expectInterruptible({"rm", "Sub", "a"}, question);
    expectInterruptible({"rm", "-r", "Sub"},
                        "vqreg: remove the key \"Sub\" with 0 keys and 1 value below it? [y/N] ");
}

class TerminalRestore : public Terminal {
protected:
    TerminalRestore() { make({"set", "Sub", "a", "new"}); }

    std::string question() const {
        return "vqreg: restore " + file.path() + " from its backup? [y/N] ";
    }

    const std::string difference = "~ [Velquist/Sub] \"a\"=string:new -> string:b\n";
};

TEST_F(TerminalRestore, AsksAfterTheDifference) {
    EXPECT_EQ(answer({"--color=never", "restore"}, question(), "y\n"),
              shows(difference + question() + "y\n"));
    EXPECT_EQ(kTerminalText, file.read());
}

TEST_F(TerminalRestore, ColoursTheDifference) {
    EXPECT_EQ(start({"restore", "-n"}).finish(),
              shows("\x1b[33m" + difference.substr(0, difference.size() - 1) + "\x1b[0m\n"));
}

TEST_F(TerminalRestore, LeavesTheStoreWithoutAYes) {
    const std::string before = file.read();
    EXPECT_EQ(answer({"--color=never", "restore"}, question(), "\n"),
              declined(difference + question() + "\n", "restored"));
    EXPECT_EQ(before, file.read());
}

TEST_F(TerminalRestore, DoesNotAskWithForce) {
    EXPECT_EQ(start({"--color=never", "restore", "-f"}).finish(), shows(difference));
    EXPECT_EQ(kTerminalText, file.read());
}

TEST_F(TerminalRestore, LeavesTheStoreWhenInterrupted) {
    const std::string before = file.read();
    TerminalProcess command = start({"--color=never", "restore"});
    command.expect(question());
    EXPECT_EQ((TerminalResult{-SIGINT, difference + question() + "\n" + kInterrupted, "", ""}),
              command.interrupt());
    EXPECT_EQ(before, file.read());
    EXPECT_EQ(kTerminalText, file.readBackup());
}
