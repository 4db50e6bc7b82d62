// vqreg run: a program whose environment are the values of a key.
#include <gmock/gmock.h>

#include <thread>

#include "support/Untold.h"
#include "tools/RunStore.h"

using testing::HasSubstr;
using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::fails;
using vqtest::prints;
using vqtest::VqregProcess;

namespace {

class Run : public vqtest::RunStore {};

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
    // A directory of the caller's that this user may not enter is another way to fail.
    ::setenv("PATH", "/usr/bin:/bin", 1);
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
    for (const std::string signal : {"FOO", "0", "-1", "65", "HUP ", "", "RTMIN-1", "RTMAX+1",
                                     "RTMIN+", "RTMIN+31", "RTMIN+-1", "RTMI"}) {
        EXPECT_EQ(finished({"--signal=" + signal}, {"true"}).status, 2) << signal;
    }
}

// As "kill" of shells knows them.
TEST_F(Run, KnowsSignalsByAllTheirNames) {
    for (const std::string signal : {"HUP", "sighup", "64", "POLL", "IO", "SIGIO", "cld", "CHLD",
                                     "IOT", "RTMIN", "RTMIN+1", "sigrtmax-30", "RTMAX"}) {
        EXPECT_EQ(finished({"--signal", signal}, {"true"}), prints("")) << signal;
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
    const std::string note = "vqreg: \"Port\" has changed; /bin/sh is started again\n";
    EXPECT_EQ(process.finish(), (CommandResult{9, "term\n", note + note + note + note}));
}

TEST_F(Run, SendsTheSignalForEachChange) {
    VqregProcess process(service({"--signal", "USR1"}));
    EXPECT_EQ(process.line(), "start 80");
    for (const std::string port : {"81", "82"}) {
        change({"set", "App", "Port", port});
        EXPECT_EQ(process.line(), "usr1");
    }
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish(), (CommandResult{9, "term\n", ""}));
}

// Before it has said what it does with a signal, most signals are its end.
TEST_F(Run, LetsAProgramStartBeforeItIsSentASignal) {
    VqregProcess process(service({"--signal", "HUP"},
                                 "echo start; sleep 0.1; trap 'echo hup' HUP\n"
                                 "while :; do sleep 0.02; done"));
    EXPECT_EQ(process.line(), "start");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.line(), "hup");
}

TEST_F(Run, ValuesThatComeAndGoAreOneSignalAtMostEachSecond) {
    const auto begin = std::chrono::steady_clock::now();
    VqregProcess process(service({"--signal", "USR1"}));
    EXPECT_EQ(process.line(), "start 80");
    for (const std::string port : {"81", "82", "83", "84", "85", "86", "87", "88"}) {
        change({"set", "App", "Port", port});
    }
    EXPECT_EQ(process.line(), "usr1");
    change({"set", "App", "Port", "89"});
    EXPECT_EQ(process.line(), "usr1");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

TEST_F(Run, NothingHappensWhenTheValuesStayWhatTheyAre) {
    makeLarge();
    VqregProcess process(service({"--signal", "HUP"}));
    EXPECT_EQ(process.line(), "start 80");
    andSeenBy(process.pid(), [] {});  // it might be sent the signal at once from here on
    change({"set", "App", "Port", "80"});
    change({"notify"});
    andReadBy(process.pid(), [&] { change({"set", "Other", "Port", "1"}); });
    andReadBy(process.pid(), [&] { change({"set", "App/Sub", "Port", "2"}); });
    // The same value under another spelling of its name.
    andReadBy(process.pid(), [&] {
        std::string text = file.read();
        replace(text.replace(text.find("\"Port\"=dword:00000050"), 6, "\"PORT\""));
    });
    // A signal for one of these would come first.
    andSeenBy(process.pid(), [] {});
    process.signal(SIGUSR1);
    EXPECT_EQ(process.line(), "usr1");
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
    EXPECT_EQ(process.finish().status, 9);
}

TEST_F(Run, AProgramThatFailsIsNotStartedAgain) {
    EXPECT_EQ(finished({"--restart"}, {"/bin/sh", "-c", "echo start; exit 3"}),
              (CommandResult{3, "start\n", ""}));
    VqregProcess process(
        service({"--restart"}, "echo start $PORT; [ $PORT = 80 ] || exit 3; exec sleep 1000"));
    EXPECT_EQ(process.line(), "start 80");
    change({"set", "App", "Port", "81"});
    EXPECT_EQ(process.finish(),
              (CommandResult{3, "start 81\n",
                             "vqreg: \"Port\" has changed; /bin/sh is started again\n"}));
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

// The system would refuse to start it with all of that, and the one that runs would be gone.
TEST_F(Run, GoesOnWithValuesThatAreTooMany) {
    const std::string small = file.read();
    std::string large = small;
    for (int i = 0; i < 300; ++i) {
        large += "\"V" + std::to_string(i) + "\"=string:" + std::string(1000, 'x') + '\n';
    }
    Arguments arguments = {"-c", "ulimit -s 1024; exec \"$@\"", "sh", VQREG_COMMAND_PATH};
    for (const std::string& word : service({"--restart"})) {
        arguments.push_back(word);
    }
    vqtest::ChildProcess process("/bin/sh", arguments);
    EXPECT_EQ(process.line(), "start 80");
    andReadBy(process.pid(), [&] { replace(large); });
    replace(small + "\"More\"=string:x\n");
    EXPECT_EQ(process.line(), "term");
    EXPECT_EQ(process.line(), "start 80");
    process.signal(SIGTERM);
    const CommandResult result = process.finish();
    EXPECT_EQ(result.status, 9);
    EXPECT_EQ(result.err,
              "vqreg: the values are more than the system starts a program with; /bin/sh goes on "
              "as it is\n"
              "vqreg: \"More\" has changed; /bin/sh is started again\n");
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
