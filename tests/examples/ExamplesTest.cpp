// The example programs do what they say, in processes of their own.
#include <VQRegLib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempStore.h"

namespace {

class Example : public testing::Test {
protected:
    static std::string path(const std::string& name) {
        return std::string(VQREG_EXAMPLES) + '/' + name;
    }

    static vqtest::CommandResult run(const std::string& name,
                                     const std::vector<std::string>& arguments) {
        return vqtest::ChildProcess(path(name), arguments).finish();
    }

    std::string read() const { return file.read(); }

    vqtest::TempStore file;
};

const std::string kTop = "[Velquist]\n[Velquist/Service]\n";

}  // namespace

using CountExample = Example;

TEST_F(CountExample, LosesNoCountOfManyProcesses) {
    EXPECT_EQ(run("count", {file.path(), "Common/Counter", "4", "100"}).out, "Count is 400\n");
    EXPECT_EQ(run("count", {file.path(), "Common/Counter", "2", "5"}).out, "Count is 410\n");
    EXPECT_NE(read().find("\"Count\"=dword:0000019A\n"), std::string::npos);
}

TEST_F(CountExample, CountsNotOnWithAnotherType) {
    const std::string text = "[Velquist]\n[Velquist/Counter]\n\"Count\"=string:7\n";
    file.write(text);
    EXPECT_EQ(run("count", {file.path(), "Counter", "1", "1"}).status, 1);
    EXPECT_EQ(read(), text);
}

TEST_F(CountExample, RefusesWhatIsNoNumber) {
    EXPECT_EQ(run("count", {file.path(), "Counter", "2x", "5"}).status, 2);
    EXPECT_EQ(run("count", {file.path(), "Counter", "2"}).status, 2);
    EXPECT_FALSE(file.exists());
}

TEST_F(CountExample, SaysThatAStoreIsUnavailable) {
    const vqtest::CommandResult result = run("count", {file.directory(), "Counter", "2", "5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "count: a process could not count\n");
}

using PortsExample = Example;

TEST_F(PortsExample, MakesWhatIsMissingAndFollowsTheStore) {
    vqtest::ChildProcess program(path("ports"), {file.path()});
    EXPECT_EQ(program.line(), "Network/Host = \"localhost\"");
    EXPECT_EQ(program.line(), "Network/Ports/Http = 80");
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    VQRegLib::CRegKey ports;
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "Network/Ports", ports, 0), 0);
    ASSERT_EQ(session.VQRegSetValue(ports, "Http", 81ul), 0);
    EXPECT_EQ(program.line(), "Network/Ports/Http: 80 -> 81");
    ASSERT_EQ(session.VQRegDeleteValue(ports, "Http"), 0);
    EXPECT_EQ(program.line(), "Network/Ports/Http: 81 -> nothing");
    ASSERT_EQ(session.VQRegDeleteKey(ports, ""), VQRegLib::REGLIB_E_KEY_NOT_FOUND);
    ASSERT_EQ(session.VQRegDeleteKey(*session.RootKey(), "Network/Ports"), 0);
    EXPECT_EQ(program.line(), "Network/Ports deleted");
    EXPECT_EQ(program.finish().status, 0);
}

TEST_F(PortsExample, KeepsWhatIsThere) {
    file.write(
        "[Velquist]\n[Velquist/Network]\n\"Host\"=string:web\n"
        "[Velquist/Network/Ports]\n\"Http\"=dword:00000051\n");
    EXPECT_EQ(run("ports", {file.path()}).out, "Network/Host = \"web\"\nNetwork/Ports/Http = 81\n");
}

TEST_F(PortsExample, SaysWhatIsWrongWithTheStore) {
    file.write("[Velquist]\nHttp=dword:1\n");
    const vqtest::CommandResult result = run("ports", {file.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ports: cannot open the store: " + file.path() +
                              ":2:1: neither a key nor a value begins here\n");
}

using MigrateExample = Example;

TEST_F(MigrateExample, BringsTheOldestLayoutToTheNewest) {
    file.write(kTop + "\"Listen\"=string:10.0.0.7:8080\n\"Log\"=string:debug\n");
    EXPECT_EQ(run("migrate", {file.path(), "Service"}).out, "layout 0 -> 1\nlayout 1 -> 2\n");
    EXPECT_EQ(read(), kTop +
                          "\"Layout\"=dword:00000002\n"
                          "[Velquist/Service/Logging]\n\"Level\"=dword:00000002\n"
                          "[Velquist/Service/Network]\n\"Address\"=string:10.0.0.7\n"
                          "\"Port\"=dword:00001F90\n");
    // Both steps were one write: the backup holds the old layout.
    EXPECT_EQ(file.readBackup(), kTop + "\"Listen\"=string:10.0.0.7:8080\n\"Log\"=string:debug\n");
}

TEST_F(MigrateExample, DoesOnlyTheStepsThatAreMissing) {
    file.write(kTop + "\"Layout\"=dword:00000001\n\"Log\"=string:error\n");
    EXPECT_EQ(run("migrate", {file.path(), "Service"}).out, "layout 1 -> 2\n");
    EXPECT_EQ(read(), kTop +
                          "\"Layout\"=dword:00000002\n"
                          "[Velquist/Service/Logging]\n\"Level\"=dword:00000000\n");
}

TEST_F(MigrateExample, LeavesTheNewestLayoutAsItIs) {
    EXPECT_EQ(run("migrate", {file.path(), "Service"}).status, 0);
    const ino_t before = file.inode();
    EXPECT_EQ(run("migrate", {file.path(), "Service"}).out, "layout 2 already\n");
    EXPECT_EQ(file.inode(), before);
}

TEST_F(MigrateExample, RefusesALayoutOfTheFuture) {
    const std::string future = kTop + "\"Layout\"=dword:00000003\n";
    file.write(future);
    const vqtest::CommandResult result = run("migrate", {file.path(), "Service"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "migrate: layout 3 is newer than this program knows\n");
    EXPECT_EQ(read(), future);
}

TEST_F(MigrateExample, StopsBeforeAStepThatItCannotDo) {
    for (const std::string listen : {"8080", "host:", "host:80x", "host:65536"}) {
        const std::string old = kTop + "\"Listen\"=string:" + listen + '\n';
        file.write(old);
        const vqtest::CommandResult result = run("migrate", {file.path(), "Service"});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "migrate: \"Listen\" is no HOST:PORT: " + listen + '\n');
        EXPECT_EQ(read(), old);
    }
}

TEST_F(MigrateExample, TakesNothingOfAnotherTypeForMissing) {
    for (const std::string line : {"\"Layout\"=string:1\n", "\"Listen\"=dword:00000050\n"}) {
        const std::string old = kTop + line;
        file.write(old);
        EXPECT_EQ(run("migrate", {file.path(), "Service"}).status, 1);
        EXPECT_EQ(read(), old);
    }
}

TEST_F(MigrateExample, SurvivesAProcessWithTheOldTree) {
    file.write(kTop + "\"Listen\"=string:10.0.0.7:8080\n\"Log\"=string:debug\n");
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    ASSERT_EQ(run("migrate", {file.path(), "Service"}).status, 0);
    ASSERT_EQ(session.VQRegSetValue(*session.RootKey(), "Other", 1ul), VQRegLib::REGLIB_OK);
    EXPECT_NE(read().find("[Velquist/Service/Logging]\n\"Level\"=dword:00000002\n"),
              std::string::npos);
    EXPECT_EQ(run("migrate", {file.path(), "Service"}).out, "layout 2 already\n");
}

TEST_F(MigrateExample, RunsOnceWhenManyStartTogether) {
    file.write(kTop + "\"Listen\"=string:10.0.0.7:8080\n");
    std::vector<std::unique_ptr<vqtest::ChildProcess>> services;
    const std::vector<std::string> arguments = {file.path(), "Service"};
    for (int i = 0; i < 6; ++i) {
        services.push_back(std::make_unique<vqtest::ChildProcess>(path("migrate"), arguments));
    }
    std::multiset<std::string> said;
    for (const auto& service : services) {
        said.insert(service->finish().out);
    }
    EXPECT_EQ(said.count("layout 0 -> 1\nlayout 1 -> 2\n"), 1u);
    EXPECT_EQ(said.count("layout 2 already\n"), 5u);
}

class FollowExample : public Example {
protected:
    void set(const std::string& text) const { file.write("[Velquist]\n[Velquist/Job]\n" + text); }

    std::vector<std::string> arguments() const { return {file.path(), "Job"}; }
};

TEST_F(FollowExample, HasDefaultsAndEndsWithASignal) {
    for (const int signal : {SIGTERM, SIGINT}) {
        vqtest::ChildProcess daemon(path("follow"), arguments());
        EXPECT_EQ(daemon.line(), "settings: interval 60000 ms, message \"at work\"");
        daemon.signal(signal);
        EXPECT_EQ(daemon.line(), "end");
        EXPECT_EQ(daemon.finish(), vqtest::CommandResult{});
    }
}

TEST_F(FollowExample, WorksAtTheIntervalOfTheStore) {
    set("\"Interval\"=dword:00000005\n\"Message\"=string:hello\n");
    vqtest::ChildProcess daemon(path("follow"), arguments());
    EXPECT_EQ(daemon.line(), "settings: interval 5 ms, message \"hello\"");
    EXPECT_EQ(daemon.line(), "hello");
    EXPECT_EQ(daemon.line(), "hello");
}

TEST_F(FollowExample, TakesAChangeOverTheMomentItIsMade) {
    set("\"Message\"=string:one\n");
    vqtest::ChildProcess daemon(path("follow"), arguments());
    EXPECT_EQ(daemon.line(), "settings: interval 60000 ms, message \"one\"");
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    VQRegLib::CRegKey job;
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "Job", job, 0), VQRegLib::REGLIB_OK);
    for (const std::string message : {"two", "three"}) {
        // Its interval is a minute, longer than a test waits for a line, and nobody announces anything.
        ASSERT_EQ(session.VQRegSetValue(job, "Message", message.c_str()), VQRegLib::REGLIB_OK);
        EXPECT_EQ(daemon.line(), "settings: interval 60000 ms, message \"" + message + '"');
    }
}

TEST_F(FollowExample, HasDefaultsUntilItsKeyIsMade) {
    vqtest::ChildProcess other(path("follow"), {file.path(), "Missing"});
    EXPECT_EQ(other.line(), "settings: interval 60000 ms, message \"at work\"");
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    VQRegLib::CRegKey made;
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "Missing", made, 1), VQRegLib::REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(made, "Message", "made"), VQRegLib::REGLIB_OK);
    EXPECT_EQ(other.line(), "settings: interval 60000 ms, message \"made\"");
}

TEST_F(FollowExample, WorksThoughChangesAreMadeAllTheTime) {
    set("\"Interval\"=dword:00000032\n");
    vqtest::ChildProcess daemon(path("follow"), arguments());
    EXPECT_EQ(daemon.line(), "settings: interval 50 ms, message \"at work\"");
    std::atomic<bool> isOver{false};
    std::thread changing([&] {
        VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                                  nullptr);
        VQRegLib::CRegKey job;
        session.VQRegCreateKey(nullptr, "Job", job, 0);
        for (unsigned long i = 0; !isOver; ++i) {
            session.VQRegSetValue(job, "Other", i);
        }
    });
    std::string line;
    try {
        line = daemon.line();
    } catch (const std::runtime_error&) {
        // it never came to work
    }
    isOver = true;
    changing.join();
    EXPECT_EQ(line, "at work");
}

TEST_F(FollowExample, KeepsItsSettingsWhileTheStoreCannotBeRead) {
    set("\"Interval\"=dword:00000005\n\"Message\"=string:one\n");
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    vqtest::ChildProcess daemon(path("follow"), arguments());
    EXPECT_EQ(daemon.line(), "settings: interval 5 ms, message \"one\"");
    // A line end in a text makes the file malformed for others at their next look.
    ASSERT_EQ(session.VQRegSetValue(*session.RootKey(), "Bad", "a\nb"), VQRegLib::REGLIB_OK);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(daemon.line(), "one");
    }
    daemon.signal(SIGTERM);
    const vqtest::CommandResult result = daemon.finish();
    EXPECT_NE(result.err.find("follow: the settings stay: Job: the store's file is malformed: " +
                              file.path() + ":"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.out.find("settings:"), std::string::npos);
}

TEST_F(FollowExample, SaysWhyThereIsNoStore) {
    const vqtest::CommandResult result = run("follow", {"/missing/store.cfg", "Job"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        result.err,
        "follow: there is no store: /missing/store.cfg: the directory /missing does not exist\n");
}

TEST_F(FollowExample, KeepsAwayFromValuesOfAnotherTypeOrSize) {
    set("\"Interval\"=string:soon\n\"Message\"=dword:00000001\n");
    vqtest::ChildProcess daemon(path("follow"), arguments());
    EXPECT_EQ(daemon.line(), "settings: interval 60000 ms, message \"at work\"");
    const std::string longText(500, 'x');
    set("\"Interval\"=dword:00000000\n\"Message\"=string:" + longText + '\n');
    vqtest::ChildProcess other(path("follow"), arguments());
    EXPECT_EQ(other.line(), "settings: interval 1 ms, message \"" + longText + '"');
}

using MirrorExample = Example;

TEST_F(MirrorExample, MakesKeysOfDirectoriesAndValuesOfFiles) {
    const std::filesystem::path tree = file.directory() + "/tree";
    std::filesystem::create_directories(tree / "sub");
    std::ofstream(tree / "number") << "4294967295\n";
    std::ofstream(tree / "more") << "4294967296\n";
    std::ofstream(tree / "lines") << "one\ntwo\n";
    std::ofstream(tree / "sub" / "text") << "some text\n";
    const vqtest::CommandResult result = run("mirror", {tree.string(), file.path(), "Copy"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(
        result.out.find("2 keys, 1 numbers, 2 texts;\n   skipped 0 unreadable files and 1 that "
                        "no line can hold; 0 failures.\n"),
        std::string::npos)
        << result.out;
    EXPECT_EQ(read(),
              "[Velquist]\n[Velquist/Copy]\n\"more\"=string:4294967296\n"
              "\"number\"=dword:FFFFFFFF\n[Velquist/Copy/sub]\n\"text\"=string:some text\n");
}
