// The command at a terminal: what it asks, shows and colours there, and what Ctrl-C does.
#include <VQRegLib.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "tools/TerminalProcess.h"
#include "tools/VqregStore.h"

using testing::HasSubstr;
using testing::Not;
using vqtest::Arguments;
using vqtest::Environment;
using vqtest::TempStore;
using vqtest::TerminalProcess;
using vqtest::TerminalResult;
using vqtest::TerminalStreams;

namespace {

const std::string kText =
    "[Velquist]\n"
    "\"Port\"=dword:00000050\n"
    "[Velquist/Sub]\n"
    "\"a\"=string:b\n";

constexpr const char* kInterrupted = "vqreg: interrupted; nothing has been changed\n";

// Ended well, with this on the screen.
TerminalResult shows(const std::string& screen) {
    return {.status = 0, .screen = screen, .out = "", .err = ""};
}

TerminalResult declined(const std::string& screen, const std::string& done) {
    return {.status = 1,
            .screen = screen + "vqreg: nothing has been " + done + "\n",
            .out = "",
            .err = ""};
}

class Terminal : public vqtest::VqregStore {
protected:
    Terminal() { file.write(kText); }

    // The command on the store, at a terminal.
    TerminalProcess start(Arguments arguments, const Environment& more = {},
                          const TerminalStreams& streams = {}) const {
        arguments.insert(arguments.begin(), {"--file", file.path()});
        Environment environment = {{"LC_ALL", "C"}, {"TERM", "xterm"}, {"NO_COLOR", ""}};
        environment.insert(environment.end(), more.begin(), more.end());
        return TerminalProcess(VQREG_COMMAND_PATH, arguments, environment, streams);
    }

    TerminalResult answer(const Arguments& arguments, const std::string& question,
                          const std::string& keys) const {
        TerminalProcess command = start(arguments);
        command.expect(question);
        command.type(keys);
        return command.finish();
    }

    // Typed at the question, Ctrl-C ends the command by the signal and leaves the store alone.
    void expectInterruptible(const Arguments& arguments, const std::string& question) const {
        TerminalProcess command = start(arguments);
        command.expect(question);
        const TerminalResult result = command.interrupt();
        EXPECT_EQ(-SIGINT, result.status);
        EXPECT_THAT(result.screen, HasSubstr(question + "\n" + kInterrupted));
        EXPECT_EQ(kText, file.read());
    }
};

}  // namespace

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
    EXPECT_EQ(kText, file.read());
}

TEST_F(TerminalRm, TakesTheEndOfInputForNoAndEndsTheLine) {
    EXPECT_EQ(answer({"rm", "Sub", "a"}, question, TerminalProcess::kEndOfInput),
              declined(question + "\n", "removed"));
    EXPECT_EQ(kText, file.read());
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
    EXPECT_EQ(kText, file.read());
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
    EXPECT_EQ(kText, file.read());
}

TEST_F(TerminalRestore, LeavesTheStoreWhenInterrupted) {
    const std::string before = file.read();
    TerminalProcess command = start({"--color=never", "restore"});
    command.expect(question());
    EXPECT_EQ((TerminalResult{-SIGINT, difference + question() + "\n" + kInterrupted, "", ""}),
              command.interrupt());
    EXPECT_EQ(before, file.read());
    EXPECT_EQ(kText, file.readBackup());
}

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
    EXPECT_EQ(kText, file.read());
    command.type("y\n");
    EXPECT_EQ(command.finish(), shows(difference + question + "y\n"));
    EXPECT_EQ(changed, file.read());
    EXPECT_EQ(kText, file.readBackup());
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
    EXPECT_EQ(kText, file.read());
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
    EXPECT_EQ(kText, file.read());
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
    EXPECT_EQ(kText, file.read());
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
    EXPECT_EQ(kText, file.read());
}

TEST_F(TerminalEdit, LeavesInterruptsToTheEditor) {
    TerminalProcess command = edit(
        "f() { trap 'echo caught' INT; echo ready; until [ \"$line\" ]; do read line; done; "
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

// With a clock that goes on by a quarter of a second at each look, and one look at each step.
class TerminalProgress : public Terminal {
protected:
    TerminalProcess startSlowly(const Arguments& arguments, TerminalStreams streams = {}) const {
        const char* const given = std::getenv("ASAN_OPTIONS");
        return start(
            arguments,
            {{"LD_PRELOAD", VQREG_STEPPING_CLOCK},
             {"ASAN_OPTIONS", std::string(given ? given : "") + ":verify_asan_link_order=0"}},
            streams);
    }

    // A text with so many values and no sub key.
    static std::string valuesText(int count) {
        std::string text = "[Velquist]\n";
        for (int i = 0; i < count; ++i) {
            text += "\"v" + std::to_string(10000 + i) + "\"=dword:00000001\n";
        }
        return text;
    }

    TempStore text;
};

TEST_F(TerminalProgress, OfAnImportHasRateAndTimeLeft) {
    text.write(valuesText(6));
    EXPECT_EQ(startSlowly({"import", text.path()}).finish(),
              shows("\r4 of 6 changes, 4 per second, 0 s left\x1b[K"
                    "\r5 of 6 changes, 4 per second, 0 s left\x1b[K"
                    "\r6 of 6 changes, 4 per second, 0 s left\x1b[K"
                    "\r\x1b[K"));
    text.write(valuesText(1000));
    TerminalProcess longer = startSlowly({"import", "--replace", text.path()});
    longer.expect("\r100 of 997 changes, 4 per second, 224 s left\x1b[K\r101 of ");
    EXPECT_EQ(0, longer.finish().status);
    EXPECT_EQ(valuesText(1000), file.read());
}

TEST_F(TerminalProgress, OfAnExportCountsKeysAndValues) {
    file.write(valuesText(20));
    TerminalProcess command = startSlowly({"export"});
    command.expect("\r12 of 20 keys and values, ");
    command.expect(" s left\x1b[K");
    command.expect("\r20 of 20 keys and values, ");
    command.expect(", 0 s left\x1b[K\r\x1b[K" + valuesText(20));
    EXPECT_EQ(0, command.finish().status);
}

TEST_F(TerminalProgress, OfAnExportIntoAPipeGoesOnWhileItIsWritten) {
    file.write(valuesText(20000));
    const auto size = std::to_string(valuesText(20000).size());
    TerminalProcess command = startSlowly({"export"}, {.out = false});
    command.expect(" of 20000 keys and values, ");
    command.expect("\r" + std::to_string(4 * 65536) + " of " + size +
                   " bytes, 262144 per second, 1 s left\x1b[K");
    const TerminalResult result = command.finish();
    EXPECT_EQ(0, result.status);
    EXPECT_TRUE(result.screen.ends_with("\r\x1b[K"));
    EXPECT_EQ(valuesText(20000), result.out);
}

TEST_F(TerminalProgress, IsOnlyForTerminals) {
    text.write(valuesText(10));
    EXPECT_EQ(startSlowly({"import", text.path()}, {.err = false}).finish(), shows(""));
    EXPECT_EQ(startSlowly({"export"}, {.out = false, .err = false}).finish().err, "");
}

TEST_F(TerminalProgress, IsNotShownForQuickWork) {
    text.write(valuesText(10));
    EXPECT_EQ(start({"import", text.path()}).finish(), shows(""));
}

TEST_F(TerminalProgress, GivesWayToTheMessageOfAnInterrupt) {
    // Far more lines than a terminal keeps for one who does not read: the import is in the middle.
    text.write(valuesText(20000));
    TerminalProcess command = startSlowly({"import", text.path()});
    command.expect("\r4 of 20000 changes, ");
    const TerminalResult result = command.interrupt();
    EXPECT_EQ(-SIGINT, result.status);
    EXPECT_TRUE(result.screen.ends_with(std::string("\r\x1b[K") + kInterrupted))
        << result.screen.substr(result.screen.size() - 200);
    EXPECT_EQ(kText, file.read());
    EXPECT_FALSE(file.backupExists());
}

class TerminalInterrupt : public Terminal {};

TEST_F(TerminalInterrupt, EndsAnImportThatIsBeingTyped) {
    TerminalProcess command = start({"import", "-"});
    command.type("[Velquist]\n\"new\"=string:x\n");
    command.expect("\"new\"=string:x\n");
    EXPECT_EQ(-SIGINT, command.interrupt().status);
    EXPECT_EQ(kText, file.read());
}

TEST_F(TerminalInterrupt, EndsAnImportFromASlowPipe) {
    TerminalProcess command = start({"import", "-"}, {}, {.in = false});
    // More than a pipe holds: when all is in it, the command is reading.
    command.feed("[Velquist]\n" + std::string(1 << 20, '#') + "\n\"new\"=string:x\n");
    EXPECT_EQ((TerminalResult{-SIGINT, "", "", ""}), command.interrupt());
    EXPECT_EQ(kText, file.read());
}

TEST_F(TerminalInterrupt, EndsAWaitForTheLock) {
    VQRegLib::CRegLib holder(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                             nullptr);
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    TerminalProcess command = start({"set", "Sub", "a", "new"});
    command.expect("vqreg: waiting for the lock of " + file.path() + ", held by process " +
                   std::to_string(::getpid()));
    EXPECT_EQ(-SIGINT, command.interrupt().status);
    holder.VQRegEndUpdate();
    EXPECT_EQ(kText, file.read());
    make({"set", "Sub", "a", "new"});
}

class TerminalOutput : public Terminal {
protected:
    const std::string plain = "Port\nSub/\n";
    const std::string coloured = "Port\n\x1b[1;34mSub/\x1b[0m\n";
};

TEST_F(TerminalOutput, IsColoured) {
    EXPECT_EQ(start({"ls"}).finish(), shows(coloured));
    EXPECT_EQ(start({"--color=auto", "ls"}).finish(), shows(coloured));
}

TEST_F(TerminalOutput, IsPlainWithNoColor) {
    EXPECT_EQ(start({"ls"}, {{"NO_COLOR", "1"}}).finish(), shows(plain));
    EXPECT_EQ(start({"--color=always", "ls"}, {{"NO_COLOR", "1"}}).finish(), shows(coloured));
}

TEST_F(TerminalOutput, IsPlainWhenAskedFor) {
    EXPECT_EQ(start({"--color=never", "ls"}).finish(), shows(plain));
}

TEST_F(TerminalOutput, IsPlainInAPipeBesideATerminal) {
    EXPECT_EQ(start({"ls"}, {}, {.out = false}).finish().out, plain);
    EXPECT_EQ(start({"--color=always", "ls"}, {}, {.out = false}).finish().out, coloured);
}

TEST_F(TerminalOutput, IsNotFittedToANarrowTerminal) {
    const std::string data(200, 'x');
    make({"set", "Sub", "a value with a long name", data});
    const TerminalStreams narrow{.columns = 10};
    EXPECT_EQ(start({"get", "Sub", "a value with a long name"}, {}, narrow).finish(),
              shows(data + "\n"));
    EXPECT_EQ(start({"--color=never", "ls", "-l", "Sub"}, {}, narrow).finish(),
              shows("string  a                         b\n"
                    "string  a value with a long name  " +
                    data + "\n"));
}
