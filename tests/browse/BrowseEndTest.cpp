// However "vqreg browse" ends, the terminal is left as it was.
#include <poll.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "browse/BrowseStore.h"
#include "portable/FileDescriptor.h"
#include "support/Wait.h"

using namespace vqtest::browse;
using testing::HasSubstr;
using testing::Not;

class BrowseEnd : public BrowseTest {
protected:
    void expectEndBy(int signal) const {
        Browsing browse = start();
        browse.expect("> Network");
        EXPECT_TRUE(browse.screen().isAlternate());
        EXPECT_EQ(0u, browse.process().modes().c_lflag & static_cast<tcflag_t>(ICANON | ECHO));
        browse.process().signal(signal);
        browse.expectEnd(-signal);
    }

    // Whoever has to take notice of its end.
    static bool isOver(pid_t pid) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string number;
        std::string name;
        char state = 'Z';
        stat >> number >> name >> state;
        return state == 'Z' || state == 'X';
    }

    // Leaves no room for what the program writes, which waits for keys.
    static void fillTerminal(Browsing& browse) {
        // What it writes last, behind its first picture.
        EXPECT_TRUE(browse.waitFor([&](const std::string&) {
            return browse.process().shown().find("\x1b[?2004h") != std::string::npos;
        }));
        const std::string name = "/proc/" + std::to_string(browse.process().pid()) + "/fd/1";
        const VQRegLib::CFileDescriptor terminal(
            ::open(name.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        const std::string text(4096, ' ');
        pollfd room{terminal.get(), POLLOUT, 0};
        // What is written goes on its way only then, and leaves room again.
        while (::poll(&room, 1, 300) > 0) {
            [[maybe_unused]] const ssize_t size = ::write(terminal.get(), text.data(), text.size());
        }
    }

    static void expectEndWithoutRoom(Browsing& browse) {
        browse.process().signal(SIGTERM);
        ASSERT_TRUE(browse.process().endsUnread());
        EXPECT_EQ(-SIGTERM, browse.process().status());
        browse.waitFor([&](const std::string&) { return !browse.screen().isAlternate(); });
        browse.expectAsBefore(browse.process().modes());
    }

    // What is said where there is no screen.
    std::string refusal(const vqtest::Environment& more, int status = 3,
                        const vqtest::TerminalStreams& streams = {}) const {
        vqtest::Environment all = environment();
        all.insert(all.end(), more.begin(), more.end());
        vqtest::TerminalProcess process(VQREG_COMMAND_PATH, {"--file", file.path(), "browse"}, all,
                                        streams);
        const auto result = process.finish();
        EXPECT_EQ(status, result.status);
        return result.screen + result.err;
    }
};

TEST_F(BrowseEnd, ByItsKeys) {
    for (const char* const key : {"q", kF10}) {
        Browsing browse = start();
        browse.expect("> Network");
        browse.type(key);
        browse.expectEnd(0);
    }
}

TEST_F(BrowseEnd, BySignals) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        expectEndBy(signal);
    }
}

TEST_F(BrowseEnd, ByCtrlCAlsoInTheMiddleOfAnEdit) {
    Browsing browse = start();
    browse.type("\te5");
    browse.expect("(dword): 805");
    browse.type("\x03");
    browse.expectEnd(-SIGINT);
    EXPECT_EQ(kText, file.read());
}

TEST_F(BrowseEnd, ByFaultsOfItsOwn) {
    for (const int signal : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL}) {
        expectEndBy(signal);
    }
}

TEST_F(BrowseEnd, WithTheTerminal) {
    Browsing browse = start();
    browse.expect("> Network");
    browse.process().hangUp();
    ASSERT_TRUE(browse.process().endsUnread());
    EXPECT_EQ(-SIGHUP, browse.process().status());
}

TEST_F(BrowseEnd, BySignalsThatNobodySendsAPersonAtATerminal) {
    for (const int signal : {SIGUSR1, SIGUSR2, SIGALRM, SIGVTALRM, SIGPROF, SIGXCPU, SIGTRAP, SIGIO,
                             SIGPWR, SIGSTKFLT, SIGRTMIN, SIGRTMAX}) {
        expectEndBy(signal);
    }
}

TEST_F(BrowseEnd, ThoughAKeyHasStoppedTheTerminal) {
    Browsing browse = start();
    browse.expect("> Network");
    browse.type("\x13j");
    browse.expect("{  > Network");
    browse.process().signal(SIGTERM);
    browse.expectEnd(-SIGTERM);
}

TEST_F(BrowseEnd, ThoughNobodyTakesWhatItWrites) {
    Browsing browse = start();
    browse.expect("> Network");
    const std::string name = "/proc/" + std::to_string(browse.process().pid()) + "/fd/0";
    const VQRegLib::CFileDescriptor keys(::open(name.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    // As long as it takes its keys, it has room for its pictures.
    const auto takesKeys = [&] {
        int waiting = 0;
        return ::ioctl(keys.get(), FIONREAD, &waiting) == 0 && waiting == 0;
    };
    do {
        browse.type("\x0c");
    } while (vqtest::waitUntil(takesKeys, std::chrono::milliseconds(1500)));
    expectEndWithoutRoom(browse);
}

TEST_F(BrowseEnd, ThoughNobodyTakesWhatWasWrittenBefore) {
    Browsing browse = start();
    browse.expect("> Network");
    fillTerminal(browse);
    expectEndWithoutRoom(browse);
}

TEST_F(BrowseEnd, ThoughNobodyTakesWhatAStopWrites) {
    for (const int signal : {SIGTSTP, SIGCONT}) {
        Browsing browse = start();
        browse.expect("> Network");
        const pid_t pid = browse.process().pid();
        fillTerminal(browse);
        browse.process().signal(signal);
        EXPECT_TRUE(vqtest::waitUntil([&] { return !isPending(pid, signal); }));
        expectEndWithoutRoom(browse);
    }
}

TEST_F(BrowseEnd, LeavesNoWriterBehind) {
    VQRegLib::CRegLib holder(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                             nullptr);
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    Browsing browse = start();
    browse.type("\te5\r");
    browse.expect("waiting for the lock");
    const pid_t writer = browse.writer();
    ASSERT_GT(writer, 0);
    browse.process().signal(SIGTERM);
    browse.expectEnd(-SIGTERM);
    EXPECT_TRUE(vqtest::waitUntil([&] { return isOver(writer); }));
    holder.VQRegEndUpdate();
    EXPECT_EQ(kText, file.read());
}

TEST_F(BrowseEnd, LeavesNoWriterBehindWhenItIsKilled) {
    VQRegLib::CRegLib holder(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                             nullptr);
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    Browsing browse = start();
    browse.type("\te5\r");
    browse.expect("writing;");
    const pid_t writer = browse.writer();
    ASSERT_GT(writer, 0);
    browse.process().signal(SIGKILL);
    ASSERT_TRUE(browse.process().endsUnread());
    EXPECT_TRUE(vqtest::waitUntil([&] { return isOver(writer); }));
    holder.VQRegEndUpdate();
    EXPECT_EQ(kText, file.read());
}

// A shell with job control: only there can a process be stopped by its terminal.
TEST_F(BrowseEnd, GivesTheTerminalBackWhileItIsStopped) {
    const std::string script = std::string(VQREG_COMMAND_PATH) + " --file " + file.path() +
                               " browse; stty -a | grep -o ' icanon'; echo STOPPED; read line; fg; "
                               "echo ENDED $?";
    vqtest::TerminalProcess shell("/bin/sh", {"-mc", script}, environment(), {.rows = 14});
    const termios before = shell.modesAtFirst();
    shell.expect("> Network");
    shell.type("\x1a");
    const std::string between = shell.expect("STOPPED");
    EXPECT_THAT(between, HasSubstr("\x1b[?1049l"));
    EXPECT_THAT(between, HasSubstr(" icanon"));
    EXPECT_EQ(before.c_lflag, shell.modes().c_lflag);
    shell.type("\n");
    const std::string again = shell.expect("> Network");
    EXPECT_THAT(again, HasSubstr("\x1b[?1049h"));
    shell.expect("q:end");
    shell.type("q");
    shell.expect("ENDED 0");
}

// The terminal is the shell's then.
TEST_F(BrowseEnd, LeavesTheTerminalAloneWhenItGoesOnInTheBackground) {
    const std::string script = std::string(VQREG_COMMAND_PATH) + " --file " + file.path() +
                               " browse; echo STOPPED; bg; wait %1; echo STILL; read line; fg; "
                               "echo ENDED $?";
    vqtest::TerminalProcess shell("/bin/sh", {"-mc", script}, environment(), {.rows = 14});
    shell.expect("> Network");
    shell.expect("\x1b[?2004h");
    shell.type("\x1a");
    shell.expect("STOPPED");
    EXPECT_THAT(shell.expect("STILL"), Not(HasSubstr("\x1b[?")));
    shell.type("\n");
    shell.expect("> Network");
    shell.expect("\x1b[?2004h");
    shell.type("q");
    shell.expect("ENDED 0");
}

TEST_F(BrowseEnd, IsDrawnAgainAfterAStopFromElsewhere) {
    Browsing browse = start();
    browse.expect("> Network");
    const termios own = browse.process().modes();
    browse.process().signal(SIGSTOP);
    ASSERT_TRUE(browse.process().isStopped());
    browse.process().setModes(browse.modesBefore());  // as a shell does
    const std::size_t before = browse.bytesShown();
    browse.process().signal(SIGCONT);
    EXPECT_TRUE(browse.waitFor([&](const std::string&) {
        const std::string shown = browse.process().shown().substr(before);
        const std::size_t screen = shown.find("\x1b[?1049h");
        return screen != std::string::npos && shown.find("> Network", screen) != std::string::npos;
    }));
    EXPECT_EQ(own.c_lflag, browse.process().modes().c_lflag);
    EXPECT_EQ(own.c_iflag, browse.process().modes().c_iflag);
    browse.type("j");
    browse.expect("{  > Network");
    browse.type("q");
    browse.expectEnd(0);
}

TEST_F(BrowseEnd, AtOnceWhereThereIsNoTerminal) {
    const std::string message =
        "vqreg: browse needs a terminal; standard input and output must be one\n";
    EXPECT_EQ(message, refusal({}, 3, {.out = false}));
    EXPECT_EQ(message, refusal({}, 3, {.in = false}));
}

TEST_F(BrowseEnd, AtOnceOnATerminalThatIsNoScreen) {
    EXPECT_EQ(
        "vqreg: the terminal type \"nonsense\" is not known here; set TERM to one that is, xterm "
        "for "
        "example\n",
        refusal({{"TERM", "nonsense"}}));
    EXPECT_EQ(
        "vqreg: the terminal type \"dumb\" cannot move its cursor; vqreg tree and vqreg ls print "
        "what "
        "there is\n",
        refusal({{"TERM", "dumb"}}));
    EXPECT_EQ("vqreg: the terminal type is not known; set TERM to it, xterm for example\n",
              refusal({{"TERM", ""}}));
}

TEST_F(BrowseEnd, AtOnceWithoutAStoreThatCanBeShown) {
    file.write("[Velquist]\nnonsense\n");
    EXPECT_THAT(refusal({}, 4), HasSubstr(file.path() + ":2:1"));
    file.write("[Other]\n");
    EXPECT_THAT(refusal({}, 1), HasSubstr("has no key [Velquist]"));
    std::filesystem::remove(file.path());
    EXPECT_THAT(refusal({}, 3), HasSubstr("the file does not exist"));
    file.write(kText);
    vqtest::TerminalProcess process(VQREG_COMMAND_PATH,
                                    {"--file", file.path(), "browse", "No/Such"}, environment());
    const auto result = process.finish();
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("vqreg: the key \"No/Such\" does not exist\n", result.screen);
}
