// vqreg run: a program whose environment are the values of a key.
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/Untold.h"
#include "support/Wait.h"
#include "tools/TerminalProcess.h"
#include "tools/VqregStore.h"

using testing::HasSubstr;
using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::fails;
using vqtest::prints;
using vqtest::TerminalProcess;
using vqtest::VqregProcess;

namespace {

// Tells each start and does what it is told by signals, until it is told to end. The shell is busy for a
// moment only, so that no signal waits for long.
const std::string kService =
    "trap 'echo hup' HUP; trap 'echo usr1' USR1; trap 'echo int' INT; trap 'echo term; exit 9' "
    "TERM\n"
    "echo start ${PORT-none}\n"
    "while :; do sleep 0.02; done";

class Run : public vqtest::VqregStore {
protected:
    Run() { make({"set", "App", "Port", "80"}); }

    Arguments running(const Arguments& options, const Arguments& program) const {
        Arguments all = {"--file", file.path(), "run"};
        all.insert(all.end(), options.begin(), options.end());
        all.insert(all.end(), {"App", "--"});
        all.insert(all.end(), program.begin(), program.end());
        return all;
    }
    Arguments service(const Arguments& options, const std::string& script = kService) const {
        return running(options, {"/bin/sh", "-c", script, endPath()});
    }
    // What the script has as $0: it may wait until there is such a file.
    std::string endPath() const { return file.directory() + "/end"; }
    CommandResult finished(const Arguments& options, const Arguments& program) const {
        return vqtest::runVqreg(running(options, program));
    }

    void change(const Arguments& arguments) const { EXPECT_EQ(run(arguments).status, 0); }

    // A number of one of the tables in /proc.
    static long numberOf(pid_t pid, const std::string& table, const std::string& name) {
        std::ifstream in("/proc/" + std::to_string(pid) + '/' + table);
        for (std::string line; std::getline(in, line);) {
            if (line.starts_with(name + ':')) {
                return std::stol(line.substr(name.size() + 1));
            }
        }
        return 0;
    }

    // Waits until a process has been awake once more, and sleeps again.
    template <typename Action>
    static void andSeenBy(pid_t pid, Action action) {
        const auto turns = [pid] { return numberOf(pid, "status", "voluntary_ctxt_switches"); };
        action();
        const long before = turns();
        // Once for what happens just now, and once more by itself a second later.
        EXPECT_TRUE(vqtest::waitUntil([&] { return turns() >= before + 2; }));
    }

    // Waits until a process has read the store's file, which is large enough to be told from the rest
    // of what it reads.
    template <typename Action>
    void andReadBy(pid_t pid, Action action) const {
        const auto read = [pid] { return numberOf(pid, "io", "rchar"); };
        const long before = read();
        action();
        const long size = static_cast<long>(file.read().size());
        ASSERT_GT(size, 50000);
        EXPECT_TRUE(vqtest::waitUntil([&] { return read() >= before + size; }));
    }
    void makeLarge() const {
        std::string text = file.read() + "[Velquist/Large]\n";
        for (int i = 0; i < 50; ++i) {
            text += "\"V" + std::to_string(i) + "\"=string:" + std::string(1000, 'x') + '\n';
        }
        file.write(text);
    }

    void replace(const std::string& text) const {
        std::ofstream(file.path() + ".new") << text;
        std::filesystem::rename(file.path() + ".new", file.path());
    }
};

}  // namespace

TEST_F(Run, TheProgramHasTheValuesInItsEnvironment) {
    make({"set", "App", "Http Host", "a \"b\" $c"});
    make({"set", "-t", "binary", "App", "Mac", "00ff"});
    make({"set", "App/Sub", "Other", "1"});
    const Arguments program = {"/bin/sh", "-c",
                               "echo \"$PORT|$HTTP_HOST|$MAC|${OTHER-none}|$KEPT\""};
    const vqtest::Environment kept = {{"KEPT", "yes"}, {"PORT", "of the caller"}};
    for (const Arguments& options : {Arguments{}, {"--restart"}, {"--signal", "HUP"}}) {
        EXPECT_EQ(vqtest::runVqreg(running(options, program), "", kept),
                  prints("80|a \"b\" $c|00FF|none|yes\n"));
    }
    EXPECT_EQ(finished({"--prefix", "x_"}, {"/bin/sh", "-c", "echo $x_PORT ${PORT-none}"}),
              prints("80 none\n"));
}

// An environment may have what a file for units may not.
TEST_F(Run, TheProgramGetsTextsThatAreNotUtf8) {
    make({"set", "App", "Odd", "\xFF\xFE"});
    EXPECT_EQ(finished({}, {"/bin/sh", "-c", "printf %s \"$ODD\""}), prints("\xFF\xFE"));
}

TEST_F(Run, TheCommandLineOfTheProgramIsTakenAsItStands) {
    const Arguments words = {"printf", "<%s>",   "[a,b]", "--file",  "",  "get", "--",
                             "++",     "--help", "-x",    "--root=", "[", "]"};
    const std::string shown = "<[a,b]><--file><><get><--><++><--help><-x><--root=><[><]>";
    EXPECT_EQ(finished({}, words), prints(shown));
    EXPECT_EQ(finished({"--restart"}, words), prints(shown));
    EXPECT_EQ(finished({}, {"[", "a", "=", "b", "]"}).status, 1);
    EXPECT_EQ(vqtest::runVqreg({"run", "--file=" + file.path(), "--root", "Velquist", "App", "--",
                                "printenv", "PORT"}),
              prints("80\n"));
}

TEST_F(Run, WithoutAnOptionTheProgramTakesThePlaceOfTheCommand) {
    VqregProcess process(service({}, "echo $$; exec sleep 1000"));
    EXPECT_EQ(process.line(), std::to_string(process.pid()));
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{-SIGTERM, "", ""}));
}

// Neither what the command ignores for itself nor what it keeps for reading.
TEST_F(Run, SignalsOfTheProgramAreThoseOfTheCaller) {
    const Arguments look = {"grep", "-E", "Sig(Blk|Ign)", "/proc/self/status"};
    for (const std::string trap : {"", "trap '' PIPE HUP; "}) {
        const auto shown = [&](const Arguments& command) {
            Arguments all = {"-c", trap + "exec \"$@\"", "sh"};
            all.insert(all.end(), command.begin(), command.end());
            return vqtest::ChildProcess("/bin/sh", all).finish();
        };
        const CommandResult plain = shown(look);
        EXPECT_EQ(plain.status, 0);
        for (const Arguments& options : {Arguments{}, {"--restart"}}) {
            Arguments command = running(options, look);
            command.insert(command.begin(), VQREG_COMMAND_PATH);
            EXPECT_EQ(shown(command), plain) << trap;
        }
    }
}

TEST_F(Run, NoDescriptorOfTheCommandReachesTheProgram) {
    const Arguments look = {"/bin/sh", "-c", "ls /proc/self/fd | wc -l"};
    const CommandResult plain = vqtest::ChildProcess(look[0], {look[1], look[2]}).finish();
    for (const Arguments& options : {Arguments{}, {"--restart"}, {"--signal", "1"}}) {
        EXPECT_EQ(finished(options, look), plain);
    }
}

TEST_F(Run, EndsAsTheProgramDoes) {
    for (const Arguments& options : {Arguments{}, {"--restart"}, {"--signal", "sighup"}}) {
        EXPECT_EQ(finished(options, {"/bin/sh", "-c", "exit 42"}), (CommandResult{42, "", ""}));
        EXPECT_EQ(finished(options, {"no such program"}),
                  fails(127, "no such program: No such file or directory"));
        EXPECT_EQ(finished(options, {"/tmp"}), fails(126, "/tmp: Permission denied"));
    }
    EXPECT_EQ(finished({"--restart"}, {"/bin/sh", "-c", "kill -9 $$"}),
              (CommandResult{128 + SIGKILL, "", ""}));
    EXPECT_EQ(finished({"--signal", "HUP"}, {"/bin/sh", "-c", "kill -TERM $$"}),
              (CommandResult{128 + SIGTERM, "", ""}));
}

TEST_F(Run, SaysWhatIsWrongWithItsCommandLine) {
    const std::string usage =
        "\nusage: vqreg run [--restart] [--signal NAME] [--grace S] [--prefix P] KEY -- COMMAND "
        "[ARGUMENT...]";
    EXPECT_EQ(run({"run", "App"}), fails(2, "COMMAND is required behind \"--\"" + usage));
    EXPECT_EQ(run({"run", "App", "--"}), fails(2, "COMMAND is required behind \"--\"" + usage));
    EXPECT_EQ(run({"run", "--", "true"}), fails(2, "KEY is required" + usage));
    EXPECT_EQ(run({"run", "App", "true"}), fails(2, "one argument too many: \"true\"" + usage));
    EXPECT_EQ(finished({"--restart", "--signal", "HUP"}, {"true"}),
              fails(2, "--restart and --signal exclude each other" + usage));
    EXPECT_EQ(finished({"--grace", "1"}, {"true"}),
              fails(2, "--grace needs --restart too" + usage));
    for (const std::string signal : {"FOO", "0", "-1", "65", "HUP ", ""}) {
        EXPECT_EQ(finished({"--signal=" + signal}, {"true"}).status, 2) << signal;
    }
}

TEST_F(Run, StartsNothingWithoutTheKeyOrWithoutAnEnvironment) {
    EXPECT_EQ(run({"run", "Nothing", "--", "echo", "started"}),
              fails(1, "the key \"Nothing\" does not exist"));
    make({"set", "App", "ld-preload", "x"});
    for (const Arguments& options : {Arguments{}, {"--restart"}, {"--signal", "HUP"}}) {
        const CommandResult result = finished(options, {"echo", "started"});
        EXPECT_EQ(result.status, 5);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr("the variable LD_PRELOAD"));
    }
}

TEST_F(Run, StartsAgainWithTheNewValues) {
    VqregProcess process(service({"--restart"}));
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start 81");
    change({"--no-notify", "rm", "-f", "App", "Port"});
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start none");
    change({"set", "App", "Port", "82"});
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start 82");
    change({"rm", "-r", "-f", "App"});
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start none");
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{9, "term\n", ""}));
}

TEST_F(Run, SendsTheSignalForEachChange) {
    VqregProcess process(service({"--signal", "USR1"}));
    EXPECT_EQ(process.line(), "start 80");
    for (const std::string port : {"81", "82", "83"}) {
        change({"set", "App", "Port", port});
        EXPECT_EQ(process.line(), "usr1");
    }
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{9, "term\n", ""}));
}

TEST_F(Run, NothingHappensWhenTheValuesStayWhatTheyAre) {
    makeLarge();
    VqregProcess process(service({"--signal", "HUP"}));
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "80"});
    change({"notify"});
    andReadBy(process.pid(), [&] { change({"set", "Other", "Port", "1"}); });
    andReadBy(process.pid(), [&] { change({"set", "App/Sub", "Port", "2"}); });
    // The same value under another spelling of its name.
    andReadBy(process.pid(), [&] {
        std::string text = file.read();
        replace(text.replace(text.find("\"Port\"=dword:00000050"), 6, "\"PORT\""));
    });
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "hup");
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{9, "term\n", ""}));
}

// It never writes, so it brings nothing back.
TEST_F(Run, NobodyIsWarnedOfIt) {
    VqregProcess process(service({"--signal", "HUP"}));
    EXPECT_EQ(process.line(), "start 80");
    EXPECT_EQ(run({"rm", "-f", "App", "Port"}), prints(""));
    EXPECT_EQ(process.line(), "hup");
}

TEST_F(Run, FollowsTheValuesWhereTheSystemTellsOfNoChanges) {
    if (!vqtest::mayRunUntold()) {
        GTEST_SKIP() << "no namespaces of users can be made here";
    }
    Arguments arguments = vqtest::untold(VQREG_COMMAND_PATH);
    for (const std::string& word : service({"--restart"})) {
        arguments.push_back(word);
    }
    vqtest::ChildProcess process(vqtest::kUntold, arguments);
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start 81");
}

// What is written by another name of the file is found at the next look, which others do not put off.
TEST_F(Run, FilesBesideThatOfTheStoreKeepNoNewsBack) {
    const std::string elsewhere = file.directory() + "/elsewhere";
    std::filesystem::create_directory(elsewhere);
    VqregProcess process(service({"--signal", "HUP"}));
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "hup");
    std::string text = file.read();
    std::filesystem::create_hard_link(file.path(), elsewhere + "/link");
    const std::jthread neighbour([&](const std::stop_token& token) {
        while (!token.stop_requested()) {
            std::ofstream(file.path() + ".neighbour") << "x";
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    std::ofstream(elsewhere + "/link") << text.replace(text.find("00000051"), 8, "00000052");
    EXPECT_EQ(process.line(), "hup");
}

TEST_F(Run, ValuesThatComeAndGoStartItOnceAtMostEachSecond) {
    const auto begin = std::chrono::steady_clock::now();
    VqregProcess process(service({"--restart"}));
    EXPECT_EQ(process.line(), "start 80");
    for (int port = 1; port <= 30; ++port) {
        change({"set", "App", "Port", std::to_string(port)});
    }
    int starts = 1;
    for (std::string line; line != "start 30"; starts += line.starts_with("start ") ? 1 : 0) {
        line = process.line();
    }
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
    EXPECT_LE(starts, 2 + seconds.count());
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{9, "term\n", ""}));
}

TEST_F(Run, AProgramThatFailsIsNotStartedAgain) {
    EXPECT_EQ(finished({"--restart"}, {"/bin/sh", "-c", "echo start; exit 3"}),
              (CommandResult{3, "start\n", ""}));
    VqregProcess process(
        service({"--restart"}, "echo start $PORT; [ $PORT = 80 ] || exit 3; exec sleep 1000"));
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.finish(), (CommandResult{3, "start 81\n", ""}));
}

TEST_F(Run, WhatDoesNotEndIsKilledAfterTheGrace) {
    VqregProcess process(service({"--restart", "--grace", "0.3"},
                                 "trap 'echo ignored' TERM; echo start $PORT\n"
                                 "while :; do sleep 0.02; done"));
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "ignored");
    EXPECT_EQ(process.line(), "start 81");
    process.signal(SIGKILL);
    EXPECT_EQ(process.finish(),
              (CommandResult{-SIGKILL, "",
                             "vqreg: /bin/sh has not ended 0.3 s after SIGTERM, and is killed\n"}));
}

TEST_F(Run, WhatIsStoppedEndsToo) {
    VqregProcess stopped(
        service({"--restart", "--grace", "100"}, "echo $$ $PORT; kill -STOP $$; exec sleep 1000"));
    EXPECT_THAT(stopped.line(), HasSubstr(" 80"));
    change({"set", "App", "Port", "81"});
    EXPECT_THAT(stopped.line(), HasSubstr(" 81"));
}

TEST_F(Run, PassesSignalsOn) {
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
TEST_F(Run, TheEndIsTheEndAlsoInTheMiddleOfARestart) {
    VqregProcess process(service({"--restart"},
                                 "n=0; trap 'n=$((n+1)); echo term $n' TERM; echo start\n"
                                 "while [ $n -lt 2 ]; do sleep 0.02; done; exit 7"));
    EXPECT_EQ(process.line(), "start");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "term 1");
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{7, "term 2\n", ""}));
}

// Also for one that takes its time, and hears of new values meanwhile.
TEST_F(Run, WhatIsToldToEndIsNotStartedAgain) {
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
TEST_F(Run, WhatOutlivesAnInterruptionIsStartedAgainAfterTheGrace) {
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

// Units send it to have the settings read again.
TEST_F(Run, AHangUpThatSomebodySendsIsNoEnd) {
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
TEST_F(Run, EndsWithItsTerminal) {
    TerminalProcess process(VQREG_COMMAND_PATH, service({"--restart"}, "echo $$; exec sleep 1000"));
    const pid_t program = std::stoi(process.expect("\n"));
    process.hangUp();
    ASSERT_TRUE(vqtest::waitUntil([&] { return ::kill(program, 0) != 0; }));
    EXPECT_EQ(vqtest::waitForProcess(process.pid()), 128 + SIGHUP);
}

TEST_F(Run, WhatIsStoppedEndsWithTheCommand) {
    VqregProcess process(
        service({"--restart"}, "trap 'echo term; exit 5' TERM; echo $$; kill -STOP $$"));
    const std::string table = "/proc/" + process.line() + "/status";
    ASSERT_TRUE(vqtest::waitUntil(
        [&] { return vqtest::readFile(table).find("(stopped)") != std::string::npos; }));
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{5, "term\n", ""}));
}

// What it ignores for itself, a program ignores as well, but must not keep it from hearing of its end.
TEST_F(Run, EndsAsTheProgramDoesWhereTheEndOfChildrenIsIgnored) {
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
TEST_F(Run, LeavesNoDeadProcessesWhenItIsTheFirstOne) {
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

TEST_F(Run, NoLateSignalChangesHowItEnds) {
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
TEST_F(Run, NoProgramIsLeftWhenTheCommandIsKilled) {
    for (const Arguments& options : {Arguments{"--restart"}, {"--signal", "HUP"}}) {
        VqregProcess process(service(options, "trap '' TERM HUP; echo start; exec sleep 1000"));
        EXPECT_EQ(process.line(), "start");
        process.signal(SIGKILL);
        EXPECT_EQ(process.finish(), (CommandResult{-SIGKILL, "", ""}));
    }
}

TEST_F(Run, GoesOnWithValuesThatMakeNoEnvironment) {
    VqregProcess process(service({"--restart"}));
    EXPECT_EQ(process.line(), "start 80");
    andSeenBy(process.pid(), [&] { change({"set", "App", "LD_PRELOAD", "x"}); });
    change({"mv", "App", "LD_PRELOAD", "App", "Preload"});
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start 80");
    process.signal(SIGTERM);
    const CommandResult result = process.finish();
    EXPECT_EQ(result.status, 9);
    EXPECT_THAT(result.err, HasSubstr("which steers other programs; give it a --prefix; /bin/sh "
                                      "goes on as it is\n"));
}

TEST_F(Run, GoesOnWhileTheFileIsMalformedEmptyOrMissing) {
    const std::string good = file.read();
    VqregProcess process(service({"--restart"}));
    EXPECT_EQ(process.line(), "start 80");
    for (const char* const text : {"bad\n", ""}) {
        andSeenBy(process.pid(), [&] { replace(text); });
    }
    andSeenBy(process.pid(), [&] { std::filesystem::remove(file.path()); });
    file.write(good + "\"V\"=string:x\n");
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start 80");
    process.signal(SIGTERM);
    const CommandResult result = process.finish();
    EXPECT_EQ(result.status, 9);
    EXPECT_THAT(result.err, HasSubstr(":1:1: error: "));
}

TEST_F(Run, AtATerminalItsKeysReachTheProgramOnce) {
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

TEST_F(Run, AtATerminalItStopsAndGoesOnWithTheProgram) {
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
