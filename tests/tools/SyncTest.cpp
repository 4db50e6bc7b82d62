// Changes that wait for the disk, by option or by environment, as the calls of the process show them.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/Agent.h"
#include "tools/VqregStore.h"

namespace fs = std::filesystem;
using namespace vqtest;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class Sync : public VqregStore {
protected:
    using Environment = VqregProcess::Environment;

    // A sanitizer wants to be the first library.
    Environment seen() const {
        const char* const given = std::getenv("ASAN_OPTIONS");
        return {{"LD_PRELOAD", VQREG_DISK_CALLS},
                {"VQREG_TEST_CALLS", m_calls},
                {"ASAN_OPTIONS", (given ? std::string(given) : "") + ":verify_asan_link_order=0"}};
    }

    CommandResult runSeen(std::vector<std::string> arguments, Environment environment = {}) {
        arguments.insert(arguments.begin(), {"--file", file.path(), "--no-notify"});
        environment.emplace_back("LC_ALL", "C");
        for (const auto& variable : seen()) {
            environment.push_back(variable);
        }
        return runVqreg(arguments, {}, environment);
    }

    // Since the last time. A temporary file's unique ending is "+".
    std::vector<std::string> calls() const {
        std::ifstream in(m_calls);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            constexpr std::size_t kUniqueEnding = 36;
            if (line.size() > kUniqueEnding && line[line.size() - 13] == '-') {
                line.replace(line.size() - kUniqueEnding, kUniqueEnding, "+");
            }
            lines.push_back(line);
        }
        fs::remove(m_calls);
        return lines;
    }

    const std::string m_calls = file.path() + ".calls";
};

}  // namespace

TEST_F(Sync, WithoutTheSwitchNothingWaitsForTheDisk) {
    EXPECT_EQ(runSeen({"set", ".", "a", "x"}).status, 0);
    EXPECT_THAT(calls(), Not(Contains(HasSubstr("sync"))));
}

TEST_F(Sync, TheOptionBringsTextAndNamesToTheDisk) {
    make({"set", ".", "a", "x"});
    EXPECT_EQ(runSeen({"--sync", "set", ".", "a", "y"}).status, 0);
    EXPECT_THAT(calls(),
                ElementsAre("fdatasync store.cfg+", "rename store.cfg.bak", "rename store.cfg",
                            "fsync " + fs::path(file.directory()).filename().string()));
    EXPECT_EQ(runSeen({"set", ".", "a", "z", "--sync"}).status, 0);
    EXPECT_THAT(calls(), Contains("fdatasync store.cfg+"));
}

TEST_F(Sync, TheEnvironmentDoesWhatTheOptionDoes) {
    EXPECT_EQ(runSeen({"set", ".", "a", "x"}, {{"VQREG_SYNC", "1"}}).status, 0);
    EXPECT_THAT(calls(), Contains("fdatasync store.cfg+"));
    for (const char* const value : {"", "0", "11", "yes"}) {
        EXPECT_EQ(runSeen({"set", ".", "a", value}, {{"VQREG_SYNC", value}}).status, 0);
        EXPECT_THAT(calls(), Not(Contains(HasSubstr("sync")))) << value;
    }
}

TEST_F(Sync, WhatDoesNotReachTheDiskIsNotDone) {
    make({"set", ".", "a", "x"});
    const std::string before = file.read();
    const Environment failing = {{"VQREG_SYNC", "1"}, {"VQREG_TEST_FAILING", "fdatasync"}};
    EXPECT_EQ(runSeen({"set", ".", "a", "y"}, failing).status, 7);
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(runSeen({"--sync", "set", ".", "a", "y"}, {{"VQREG_TEST_FAILING", "fsync"}}).status,
              7);
}

TEST_F(Sync, ATextThatReplacesAMalformedOneIsOnTheDisk) {
    make({"set", ".", "a", "x"});
    make({"set", ".", "a", "y"});
    file.write("malformed\n");
    EXPECT_EQ(runSeen({"restore"}).status, 0);
    const std::vector<std::string> seen = calls();
    EXPECT_THAT(seen, Contains(HasSubstr("fdatasync store.cfg.restored-")));
    EXPECT_EQ(seen.back(), "fsync " + fs::path(file.directory()).filename().string());
}

TEST_F(Sync, AnyProgramThatUsesTheLibraryTakesTheEnvironmentsWord) {
    std::vector<std::string> environment = {"VQREG_SYNC=1"};
    for (const auto& [name, value] : seen()) {
        environment.push_back(name + "=" + value);
    }
    Agent agent(VQREG_AGENT_PATH, environment);
    EXPECT_EQ(agent.open(file.path()), 0);
    calls();
    EXPECT_EQ(agent.set(".", "a", "x"), 0);
    EXPECT_THAT(calls(), Contains("fdatasync store.cfg+"));
}
