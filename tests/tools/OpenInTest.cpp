// Programs that have a store open, and what they bring back.
#include <sched.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "support/Agent.h"
#include "support/ForkedChild.h"
#include "support/OtherUser.h"
#include "support/Wait.h"
#include "tools/TerminalProcess.h"
#include "tools/VqregStore.h"

using vqtest::Agent;
using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::prints;

namespace {

const std::string kText =
    "[Velquist]\n[Velquist/Net]\n\"Name\"=string:eth0\n\"Port\"=dword:00000050\n";

using Clock = std::chrono::steady_clock;

// The segment of System V memory that a process maps; -1 for none.
int segmentOf(pid_t pid) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("/SYSV") != std::string::npos) {
            std::istringstream fields(line);
            std::string range, access, offset, device;
            int number = -1;
            fields >> range >> access >> offset >> device >> number;
            return number;
        }
    }
    return -1;
}

// In a new namespace. A number is a place, and how often the places have been gone through.
bool attachSegmentOfNumber(int number) {
    constexpr int kPlaces = 32768;
    constexpr int kAttempts = 1000;
    for (int place = 0; place < number % kPlaces; ++place) {
        if (::shmget(IPC_PRIVATE, 1, IPC_CREAT | 0600) < 0) {
            return false;
        }
    }
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const int made = ::shmget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
        if (made == number) {
            return ::shmat(made, nullptr, 0) != reinterpret_cast<void*>(-1);
        }
        ::shmctl(made, IPC_RMID, nullptr);
    }
    return false;
}

}  // namespace

class OpenStore : public vqtest::VqregStore {
protected:
    OpenStore() : agent(VQREG_AGENT_PATH) {
        file.write(kText);
        EXPECT_EQ(agent.open(file.path()), 0);
        EXPECT_EQ(agent.get("Net", "Port").code, 0);
    }

    std::string warning() const { return warning(agent.pid()); }

    static std::string warning(pid_t pid) {
        return "vqreg: open in " + std::to_string(pid) +
               " (agent): a value that is deleted here comes back with its next change; stop it "
               "first\n";
    }

    // The agent's next change brings back what it has in its memory.
    void expectReturn(Arguments arguments, const std::string& input, const std::string& returned) {
        arguments.insert(arguments.begin(), {"--file", file.path()});
        arguments.insert(arguments.end(), {"--verify", "60"});
        const std::string before = file.read();
        vqtest::VqregProcess command(arguments, {{"EDITOR", editor()}});
        const auto isRead = std::async(std::launch::async, [&] {
            ASSERT_TRUE(vqtest::waitUntil([&] { return file.read() != before; }));
            EXPECT_EQ(agent.set("Net", "Name", "eth" + std::to_string(++changes)), 0);
        });
        const CommandResult result = command.finish(input);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err.substr(result.err.find("vqreg: ")), warning() + returned);
    }

    // Of one line: it removes the line of the value Port, and what is malformed.
    std::string editor() const {
        const std::string path = file.directory() + "/editor";
        std::ofstream(path) << "#!/bin/sh\nsed -i '/Port/d;/nonsense/d' \"$1\"\n";
        ::chmod(path.c_str(), 0755);
        return path;
    }

    Agent agent;
    int changes = 0;
};

TEST_F(OpenStore, IsToldByInfo) {
    Agent second(VQREG_AGENT_PATH);
    ASSERT_EQ(second.open(file.path()), 0);
    Agent elsewhere(VQREG_AGENT_PATH);
    vqtest::TempStore other;
    ASSERT_EQ(elsewhere.open(other.path()), 0);
    const pid_t low = std::min(agent.pid(), second.pid());
    const pid_t high = std::max(agent.pid(), second.pid());
    const std::string line = "\nopen in        " + std::to_string(low) + " (agent), " +
                             std::to_string(high) + " (agent)\n";
    const auto text = run({"info"}).out;
    EXPECT_NE(text.find(line), std::string::npos) << text;
    const auto json = nlohmann::json::parse(run({"info", "--json"}).out);
    EXPECT_EQ(json["openIn"], nlohmann::json({{{"pid", low}, {"program", "agent"}},
                                              {{"pid", high}, {"program", "agent"}}}));
    second.exit();
    agent.exit();
    second.waitExit();
    agent.waitExit();
    EXPECT_NE(run({"info"}).out.find("\nopen in        no process in sight\n"), std::string::npos);
    EXPECT_TRUE(nlohmann::json::parse(run({"info", "--json"}).out)["openIn"].empty());
}

// The segments of another IPC namespace, a container's for example, have the same numbers.
TEST_F(OpenStore, IsNotTheSegmentOfTheSameNumberElsewhere) {
    const int number = segmentOf(agent.pid());
    ASSERT_GE(number, 0);
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    vqtest::ForkedChild elsewhere([&] {
        const bool isElsewhere = ::unshare(CLONE_NEWIPC) == 0;
        const bool isMade = isElsewhere && attachSegmentOfNumber(number);
        (void)!::write(ends[1], isMade ? "m" : isElsewhere ? "-" : "n", 1);
        ::pause();
        return 0;
    });
    ::close(ends[1]);
    char byte = 0;
    ASSERT_EQ(::read(ends[0], &byte, 1), 1);
    ::close(ends[0]);
    if (byte == 'n') {
        GTEST_SKIP() << "no namespaces can be made here";
    }
    ASSERT_EQ(byte, 'm') << "there is no segment of the number " << number;
    EXPECT_EQ(segmentOf(elsewhere.pid()), number);
    const std::string out = run({"info"}).out;
    EXPECT_NE(out.find("\nopen in        " + std::to_string(agent.pid()) + " (agent)\n"),
              std::string::npos)
        << out;
    elsewhere.kill();
}

// Every program looks into the default store once, for the level of its trace.
TEST_F(OpenStore, IsNotTheDefaultStoreOfEveryProgram) {
    EXPECT_EQ(vqtest::runVqreg({"mkkey", "K"}), prints(""));
    EXPECT_EQ(vqtest::runVqreg({"set", "K", "V", "1"}), prints(""));
    Agent second(VQREG_AGENT_PATH);
    ASSERT_EQ(second.open(file.path()), 0);
    EXPECT_EQ(vqtest::runVqreg({"rm", "K", "V"}), prints(""));
    ASSERT_EQ(second.open(), 0);
    EXPECT_EQ(vqtest::runVqreg({"rm", "K"}).err, warning(second.pid()));
}

TEST_F(OpenStore, IsNamedBeforeADeletion) {
    const CommandResult warned = {0, "", warning()};
    EXPECT_EQ(run({"rm", "Net", "Port"}), warned);
    EXPECT_EQ(run({"rm", "-r", "Net"}), warned);
    file.write(kText);
    EXPECT_EQ(run({"mv", "Net", "Port", "Net", "Other"}), warned);
    EXPECT_EQ(run({"mv", "Net", "Far"}), warned);
    EXPECT_EQ(run({"batch"}, "mkkey K\nrm K\nrm -r Far\n"), warned);
    EXPECT_EQ(run({"import", "--replace", "-"}, "[Velquist]\n").err, "");
    file.write(kText);
    EXPECT_EQ(run({"import", "--replace", "-"}, "[Velquist]\n[Velquist/Net]\n"), warned);
    EXPECT_EQ(run({"restore", "--json"}).err, "");
    EXPECT_EQ(run({"restore", "--json"}).err, warning());
}

TEST_F(OpenStore, IsNamedBeforeTheQuestion) {
    vqtest::TerminalProcess command(VQREG_COMMAND_PATH,
                                    {"--file", file.path(), "rm", "Net", "Port"});
    command.expect(warning() + "vqreg: remove the value \"Port\" of the key \"Net\"? [y/N] ");
    command.type("n\n");
    EXPECT_EQ(command.finish().status, 1);
    EXPECT_EQ(file.read(), kText);
}

TEST_F(OpenStore, IsNotNamedWhereNothingIsDeleted) {
    EXPECT_EQ(run({"set", "Net", "Port", "81"}), prints(""));
    EXPECT_EQ(run({"import", "-"}, "[Velquist]\n[Velquist/New]\n"), prints(""));
    EXPECT_EQ(run({"import", "--replace", "-"}, file.read()), prints(""));
    EXPECT_EQ(run({"rm", "--if-exists", "Net", "No"}), prints(""));
    EXPECT_EQ(run({"rm", "Net", "No"}).err,
              "vqreg: the value \"No\" of the key \"Net\" does not exist\n");
    EXPECT_EQ(run({"mv", "Net", "NET"}), prints(""));
    EXPECT_EQ(run({"mv", "Net", "Port", "Net", "PORT"}), prints(""));
    EXPECT_EQ(run({"cp", "Net", "Copy"}), prints(""));
}

TEST_F(OpenStore, BringsBackWhatIsVerified) {
    const std::string port = "vqreg: the value \"Port\" of the key \"Net\" has returned\n";
    expectReturn({"rm", "Net", "Port"}, "", port);
    expectReturn({"mv", "Net", "Port", "Net", "Moved"}, "", port);
    expectReturn({"batch"}, "rm Net Port\n", port);
    expectReturn({"import", "--replace", "-"}, "[Velquist/Net]\n\"Name\"=string:x\n",
                 "vqreg: the value \"Moved\" of the key \"Net\" has returned\n" + port);
}

TEST_F(OpenStore, BringsBackWhatWasEditedAway) {
    expectReturn({"edit", "-y"}, "", "vqreg: the value \"Port\" of the key \"Net\" has returned\n");
}

TEST_F(OpenStore, BringsBackWhatWasEditedOutOfAMalformedFile) {
    const std::string malformed = kText + "nonsense\n";
    file.write(malformed);
    vqtest::VqregProcess command({"--file", file.path(), "edit", "-y", "--verify", "60"},
                                 {{"EDITOR", editor()}});
    ASSERT_TRUE(vqtest::waitUntil([&] { return file.read() != malformed; }));
    EXPECT_EQ(agent.set("Net", "Name", "eth1"), 0);
    const CommandResult result = command.finish();
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(warning()), std::string::npos) << result.err;
    EXPECT_TRUE(result.err.ends_with("vqreg: the value \"Port\" of the key \"Net\" has returned\n"))
        << result.err;
}

TEST_F(OpenStore, BringsBackAKeyWithAllThatIsBelowIt) {
    expectReturn({"rm", "-r", "Net"}, "",
                 "vqreg: the key \"Net\" has returned\n"
                 "vqreg: the value \"Name\" of the key \"Net\" has returned\n"
                 "vqreg: the value \"Port\" of the key \"Net\" has returned\n");
}

TEST_F(OpenStore, BringsBackWhatWasRestoredAway) {
    EXPECT_EQ(run({"set", "Net", "Late", "1"}), prints(""));
    EXPECT_EQ(agent.get("Net", "Late").code, 0);
    expectReturn({"restore"}, "", "vqreg: the value \"Late\" of the key \"Net\" has returned\n");
}

TEST_F(OpenStore, BringsBackWhatIsElsewhereUnderItsWholeName) {
    file.write("[Other]\n\"Late\"=string:x\n");
    std::ofstream(file.backupPath()) << "[Other]\n";
    ASSERT_EQ(agent.open(file.path(), "Other"), 0);
    ASSERT_EQ(agent.get(".", "Late").code, 0);
    const std::string before = file.read();
    vqtest::VqregProcess command({"--file", file.path(), "restore", "--verify", "60"});
    ASSERT_TRUE(vqtest::waitUntil([&] { return file.read() != before; }));
    EXPECT_EQ(agent.set(".", "More", "y"), 0);
    EXPECT_EQ(command.finish().err,
              warning() + "vqreg: the value \"Late\" of the key \"Other\" has returned\n");
}

// Whoever is not root sees how often the store is open, but not in which processes.
class OpenStoreOfOthers : public OpenStore {
protected:
    void SetUp() override {
        if (!vqtest::mayRunAsAnother(VQREG_COMMAND_PATH)) {
            GTEST_SKIP() << "no program can be run as another user here";
        }
        ::chmod(file.directory().c_str(), 0777);
    }

    CommandResult runAsNobody(const Arguments& arguments) const {
        Arguments all = vqtest::asAnother(VQREG_COMMAND_PATH);
        all.insert(all.end(), {"--file", file.path()});
        all.insert(all.end(), arguments.begin(), arguments.end());
        return vqtest::ChildProcess(vqtest::kAsAnother, all).finish();
    }
};

TEST_F(OpenStoreOfOthers, AreCountedByInfo) {
    const auto seenBy = [&] { return runAsNobody({"info"}).out; };
    EXPECT_NE(seenBy().find("\nopen in        1 that only root can name\n"), std::string::npos)
        << seenBy();
    EXPECT_EQ(nlohmann::json::parse(runAsNobody({"info", "--json"}).out)["openInHidden"], 1);
    EXPECT_EQ(nlohmann::json::parse(run({"info", "--json"}).out)["openInHidden"], 0);
    Agent second(VQREG_AGENT_PATH);
    ASSERT_EQ(second.open(file.path()), 0);
    EXPECT_NE(seenBy().find("\nopen in        up to 2 that only root can name\n"),
              std::string::npos)
        << seenBy();
    EXPECT_NE(run({"info"}).out.find("(agent), "), std::string::npos);
    EXPECT_EQ(run({"info"}).out.find("only root"), std::string::npos);
    second.exit();
    second.waitExit();
}

TEST_F(OpenStoreOfOthers, AreToldBeforeADeletion) {
    EXPECT_EQ(runAsNobody({"rm", "Net", "Port"}),
              (CommandResult{0, "",
                             "vqreg: open in 1 more that only root can name: a value that is "
                             "deleted here comes back with its next change; stop it first\n"}));
    EXPECT_EQ(runAsNobody({"set", "Net", "Port", "1"}), prints(""));
}

// Not even root sees them there.
TEST_F(OpenStore, IsCountedWhereItsProcessesHaveNoNumber) {
    const auto runElsewhere = [&](const Arguments& arguments) {
        Arguments all = {"--pid",  "--fork",   "--mount-proc", VQREG_COMMAND_PATH,
                         "--file", file.path()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return vqtest::ChildProcess("/usr/bin/unshare", all).finish();
    };
    if (runElsewhere({"ls"}).status != 0) {
        GTEST_SKIP() << "no program can be run out of sight of others here";
    }
    const std::string out = runElsewhere({"info"}).out;
    EXPECT_NE(out.find("\nopen in        1 out of sight\n"), std::string::npos) << out;
    EXPECT_EQ(runElsewhere({"rm", "Net", "Port"}).err,
              "vqreg: open in 1 more out of sight: a value that is deleted here comes back with "
              "its next change; stop it first\n");
}

TEST_F(OpenStore, IsLookedAtForTheWholeTimeWhenNothingReturns) {
    agent.exit();
    agent.waitExit();
    const auto start = Clock::now();
    EXPECT_EQ(run({"rm", "--verify", "0.3", "--json", "Net", "Port"}).status, 0);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(run({"rm", "--verify", "-1", "Net", "Name"}).status, 2);
    EXPECT_EQ(run({"rm", "--verify", "soon", "Net", "Name"})
                  .err.find("vqreg: --verify must be a number from 0 to 1000000, not \"soon\"\n"),
              0u);
    EXPECT_EQ(run({"get", "Net", "Name"}), prints("eth0\n"));
}

TEST_F(OpenStore, TellsProgramsWhatReturned) {
    vqtest::VqregProcess command(
        {"--file", file.path(), "rm", "--json", "--verify", "60", "Net", "Port"});
    ASSERT_TRUE(vqtest::waitUntil([&] { return file.read() != kText; }));
    EXPECT_EQ(agent.set("Net", "Name", "eth1"), 0);
    const auto json = nlohmann::json::parse(command.finish().out);
    EXPECT_EQ(json["changed"], true);
    ASSERT_EQ(json["returned"].size(), 1u);
    EXPECT_EQ(json["returned"][0]["path"], "Net/Port");
}
