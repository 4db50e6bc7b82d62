// vqreg run: how it and its program end, and what signals do.
#include <gmock/gmock.h>
#include <unistd.h>

#include <thread>

#include "tools/RunStore.h"
#include "tools/TerminalProcess.h"

using testing::HasSubstr;
using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::TerminalProcess;
using vqtest::VqregProcess;

namespace {

class RunEnd : public vqtest::RunStore {};

}  // namespace

TEST_F(RunEnd, WhatDoesNotEndIsKilledAfterTheGrace) {
    VqregProcess process(service({"--restart", "--grace", "1.5"},
                                 "trap 'echo ignored' TERM; echo start $PORT\n"
                                 "while :; do sleep 0.02; done"));
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "ignored");
    EXPECT_EQ(process.line(), "start 81");
    process.signal(SIGKILL);
    EXPECT_EQ(process.finish(),
              (CommandResult{-SIGKILL, "",
                             "vqreg: \"Port\" has changed; /bin/sh is started again\n"
                             "vqreg: /bin/sh has not ended 1.5 s after SIGTERM, and is killed\n"}));
}

TEST_F(RunEnd, WhatIsStoppedEndsToo) {
    VqregProcess stopped(
        service({"--restart", "--grace", "100"}, "echo $$ $PORT; kill -STOP $$; exec sleep 1000"));
    EXPECT_THAT(stopped.line(), HasSubstr(" 80"));
    change({"set", "App", "Port", "81"});
    EXPECT_THAT(stopped.line(), HasSubstr(" 81"));
}

TEST_F(RunEnd, PassesSignalsOn) {
    VqregProcess process(service({"--restart"}));
    EXPECT_EQ(process.line(), "start 80");
    for (const auto& [signal, word] :
         {std::pair(SIGHUP, "hup"), std::pair(SIGUSR1, "usr1"), std::pair(SIGINT, "int")}) {
        process.signal(signal);
        EXPECT_EQ(process.line(), word);
    }
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{9, "term\n", ""}));
}

// Who ends the command while it is being started again does not mean the one program only.
TEST_F(RunEnd, TheEndIsTheEndAlsoInTheMiddleOfARestart) {
    VqregProcess process(service({"--restart"},
                                 "n=0; trap 'n=$((n+1)); echo term $n' TERM; echo start\n"
                                 "while [ $n -lt 2 ]; do sleep 0.02; done; exit 7"));
    EXPECT_EQ(process.line(), "start");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "term 1");
    process.signal(SIGTERM);
    EXPECT_EQ(
        process.finish(),
        (CommandResult{7, "term 2\n", "vqreg: \"Port\" has changed; /bin/sh is started again\n"}));
}

// Also for one that takes its time, and hears of new values meanwhile.
TEST_F(RunEnd, WhatIsToldToEndIsNotStartedAgain) {
    makeLarge();
    VqregProcess process(service({"--restart"},
                                 "trap 'echo term; read line; exit 8' TERM; echo start\n"
                                 "while :; do sleep 0.02; done"));
    EXPECT_EQ(process.line(), "start");
    andSeenBy(process.pid(), [] {});  // it might be started again at once from here on
    process.signal(SIGTERM);
    EXPECT_EQ(process.line(), "term");
    andReadBy(process.pid(), [&] { change({"set", "App", "Port", "81"}); });
    EXPECT_EQ(process.finish(), (CommandResult{8, "", ""}));
}

// An interruption is the end of some programs only.
TEST_F(RunEnd, WhatOutlivesAnInterruptionIsStartedAgainAfterTheGrace) {
    VqregProcess process(service({"--restart", "--grace", "2"}));
    EXPECT_EQ(process.line(), "start 80");
    const auto begin = std::chrono::steady_clock::now();
    process.signal(SIGINT);
    EXPECT_EQ(process.line(), "int");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "term");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_EQ(process.line(), "start 81");
}

// As in the background of a script: what the program does not hear is no request to anybody.
TEST_F(RunEnd, AnInterruptionThatIsIgnoredPutsNothingOff) {
    Arguments arguments = {"--ignore-signal=INT", VQREG_COMMAND_PATH};
    for (const std::string& word : service({"--restart", "--grace", "1000"})) {
        arguments.push_back(word);
    }
    vqtest::ChildProcess process("/usr/bin/env", arguments);
    EXPECT_EQ(process.line(), "start 80");
    process.signal(SIGINT);
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start 81");
}

// Units send it to have the settings read again.
TEST_F(RunEnd, AHangUpThatSomebodySendsIsNoEnd) {
    VqregProcess process(service({"--restart"},
                                 "trap 'echo hup' HUP; trap 'echo term; n=1' TERM; n=0\n"
                                 "echo start $PORT; while [ $n = 0 ]; do sleep 0.02; done\n"
                                 "while [ ! -e \"$0\" ]; do sleep 0.02; done"));
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "term");
    process.signal(SIGHUP);
    EXPECT_EQ(process.line(), "hup");
    std::ofstream(endPath()) << "";
    EXPECT_EQ(process.line(), "start 81");
}

// Nobody else tells its program of it.
TEST_F(RunEnd, EndsWithItsTerminal) {
    TerminalProcess process(VQREG_COMMAND_PATH, service({"--restart"}, "echo $$; exec sleep 1000"));
    const pid_t program = std::stoi(process.expect("\n"));
    process.hangUp();
    ASSERT_TRUE(vqtest::waitUntil([&] { return ::kill(program, 0) != 0; }));
    ASSERT_TRUE(process.endsUnread());
    EXPECT_EQ(process.status(), 128 + SIGHUP);
}

TEST_F(RunEnd, WhatIsStoppedEndsWithTheCommand) {
    VqregProcess process(
        service({"--restart"}, "trap 'echo term; exit 5' TERM; echo $$; kill -STOP $$"));
    const std::string table = "/proc/" + process.line() + "/status";
    ASSERT_TRUE(vqtest::waitUntil(
        [&] { return vqtest::readFile(table).find("(stopped)") != std::string::npos; }));
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{5, "term\n", ""}));
}

// What it ignores for itself, a program ignores as well, but must not keep it from hearing of its end.
TEST_F(RunEnd, EndsAsTheProgramDoesWhereTheEndOfChildrenIsIgnored) {
    const auto ignored = [&](const Arguments& command) {
        Arguments all = {"--ignore-signal=CHLD"};
        all.insert(all.end(), command.begin(), command.end());
        return vqtest::ChildProcess("/usr/bin/env", all).finish();
    };
    const Arguments look = {"grep", "SigIgn", "/proc/self/status"};
    Arguments command = running({"--restart"}, look);
    command.insert(command.begin(), VQREG_COMMAND_PATH);
    EXPECT_EQ(ignored(command), ignored(look));
}

// Of a container it is often the first process, which inherits those whose parents have ended.
TEST_F(RunEnd, LeavesNoDeadProcessesWhenItIsTheFirstOne) {
    const Arguments namespaces = {"--pid", "--fork", "--mount-proc", "--kill-child"};
    const auto unshare = [&](const Arguments& command) {
        Arguments all = namespaces;
        all.insert(all.end(), command.begin(), command.end());
        return vqtest::ChildProcess("/usr/bin/unshare", all).finish();
    };
    if (unshare({"true"}).status != 0) {
        GTEST_SKIP() << "no namespaces can be made here";
    }
    Arguments command = service({"--signal", "HUP"},
                                "for i in 1 2 3; do (sleep 0.02 & echo $!); done >\"$0\"\n"
                                "for i in $(seq 200); do\n"
                                "    left=0; for pid in $(cat \"$0\"); do\n"
                                "        [ ! -e /proc/$pid ] || left=1; done\n"
                                "    [ $left = 1 ] || exit 7; sleep 0.02; done");
    command.insert(command.begin(), VQREG_COMMAND_PATH);
    EXPECT_EQ(unshare(command), (CommandResult{7, "", ""}));
}

TEST_F(RunEnd, NoLateSignalChangesHowItEnds) {
    for (int i = 0; i < 20; ++i) {
        VqregProcess process(
            service({"--restart"}, "trap 'exit 9' TERM; echo start; while :; do sleep 0.02; done"));
        EXPECT_EQ(process.line(), "start");
        siginfo_t end{};
        const auto hasEnded = [&] {
            process.signal(SIGTERM);
            return ::waitid(P_PID, static_cast<id_t>(process.pid()), &end,
                            WEXITED | WNOHANG | WNOWAIT) != 0 ||
                   end.si_pid != 0;
        };
        for (int times = 0; times < 100000 && !hasEnded(); ++times) {
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        ASSERT_EQ(process.finish(), (CommandResult{9, "", ""}));
    }
}

// The streams end when nobody has them any more.
TEST_F(RunEnd, NoProgramIsLeftWhenTheCommandIsKilled) {
    for (const Arguments& options : {Arguments{"--restart"}, {"--signal", "HUP"}}) {
        VqregProcess process(service(options, "trap '' TERM HUP; echo start; exec sleep 1000"));
        EXPECT_EQ(process.line(), "start");
        process.signal(SIGKILL);
        EXPECT_EQ(process.finish(), (CommandResult{-SIGKILL, "", ""}));
    }
}

TEST_F(RunEnd, AtATerminalItsKeysReachTheProgramOnce) {
    TerminalProcess process(VQREG_COMMAND_PATH,
                            service({"--signal", "HUP"},
                                    "n=0; trap 'n=$((n+1)); echo int $n' INT\n"
                                    "trap 'echo quit $n; exit 6' QUIT; echo ready\n"
                                    "while :; do sleep 0.02; done"));
    process.expect("ready\n");
    process.type(TerminalProcess::kInterrupt);
    process.expect("int 1\n");
    process.type(TerminalProcess::kInterrupt);
    process.expect("int 2\n");
    process.type("\x1c");
    process.expect("quit 2\n");
    EXPECT_EQ(process.finish().status, 6);
}

TEST_F(RunEnd, AtATerminalItStopsAndGoesOnWithTheProgram) {
    std::string command = VQREG_COMMAND_PATH;
    for (const std::string& word : running({"--restart"}, {"sh", "-c"})) {
        command += ' ' + word;
    }
    TerminalProcess shell("bash", {"--norc", "--noprofile", "-i"}, {{"PS1", "ready>"}},
                          {.columns = 1000});
    shell.expect("ready>");
    shell.type(command + " 'echo \"<$PORT>\"; exec sleep 1000'\n");
    shell.expect("<80>");
    shell.type("\x1a");
    shell.expect("Stopped");
    change({"set", "App", "Port", "81"});
    shell.type("fg\n");
    shell.expect("<81>");
    shell.type(TerminalProcess::kInterrupt);
    shell.expect("ready>");
    shell.type("echo \"=$?=\"; exit\n");
    shell.expect("=130=");
    EXPECT_EQ(shell.finish().status, 0);
}
