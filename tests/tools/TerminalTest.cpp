// The command at a terminal: what Ctrl-C does there, and the colours.
#include <VQRegLib.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tools/TerminalStore.h"

using vqtest::TerminalProcess;
using vqtest::TerminalResult;
using vqtest::TerminalStreams;
using vqtest::terminal::kTerminalText;
using vqtest::terminal::shows;
using vqtest::terminal::Terminal;

class TerminalInterrupt : public Terminal {};

TEST_F(TerminalInterrupt, EndsAnImportThatIsBeingTyped) {
    TerminalProcess command = start({"import", "-"});
    command.type("[Velquist]\n\"new\"=string:x\n");
    command.expect("\"new\"=string:x\n");
    EXPECT_EQ(-SIGINT, command.interrupt().status);
    EXPECT_EQ(kTerminalText, file.read());
}

TEST_F(TerminalInterrupt, EndsAnImportFromASlowPipe) {
    TerminalProcess command = start({"import", "-"}, {}, {.in = false});
    // More than a pipe holds: when all is in it, the command is reading.
    command.feed("[Velquist]\n" + std::string(1 << 20, '#') + "\n\"new\"=string:x\n");
    EXPECT_EQ((TerminalResult{-SIGINT, "", "", ""}), command.interrupt());
    EXPECT_EQ(kTerminalText, file.read());
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
    EXPECT_EQ(kTerminalText, file.read());
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
