// Many writers, writers that are killed, and forked ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <deque>
#include <random>
#include <string>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ForkedChild.h"
#include "support/ModelStore.h"
#include "support/TempStore.h"
#include "support/Wait.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::ForkedChild;
using vqtest::ModelStore;
using vqtest::TempStore;
using vqtest::Value;

namespace {

constexpr int kWriters = 4;
constexpr std::uint32_t kWrites = 250;
constexpr int kKills = 200;
constexpr std::uint32_t kEndless = 1000000000;

std::string valueOf(int writer) {
    return "Value" + std::to_string(writer);
}

void spin(std::chrono::microseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
}

// The store in which one value changes all the time and all others must stay.
class KilledWriters : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(witness.open(store.path()), REGLIB_OK);
        for (const char* const path : {"Kept", "Kept/Deep", "Written"}) {
            ASSERT_EQ(witness.create(path), REGLIB_OK);
            model.create(path);
        }
        ASSERT_EQ(witness.set("Kept/Deep", "Text", std::string(300, 'k')), REGLIB_OK);
        model.set("Kept/Deep", "Text", std::string(300, 'k'));
        ASSERT_EQ(witness.set("Written", "Number", 0u), REGLIB_OK);
    }

    // Has a process write until it is killed, some time after its first change.
    void killOneWriter(std::chrono::microseconds later) {
        Agent writer(VQREG_AGENT_PATH);
        ASSERT_EQ(writer.open(store.path()), REGLIB_OK);
        const ino_t before = store.inode();
        writer.tell({"stress", "Written", "Number", std::to_string(kEndless)});
        ASSERT_TRUE(vqtest::waitUntil([&] { return store.inode() != before; }));
        spin(later);
        writer.kill(SIGKILL);
        ASSERT_EQ(writer.waitExit(), (vqtest::ExitStatus{.isKilled = true, .number = SIGKILL}));
    }

    // Expects a complete file that the others can read and write.
    void expectAFineStore() {
        const Value number = witness.get("Written", "Number");
        ASSERT_EQ(number.code, REGLIB_OK);
        model.set("Written", "Number", number.dword());
        ASSERT_EQ(store.read(), model.text());
        ASSERT_EQ(witness.set("Written", "Number", kEndless + ++m_rounds), REGLIB_OK);
        model.set("Written", "Number", kEndless + m_rounds);
        ASSERT_EQ(store.read(), model.text());
    }

    TempStore store;
    ModelStore model;
    Agent witness{VQREG_AGENT_PATH};

private:
    std::uint32_t m_rounds = 0;
};

}  // namespace

TEST(ManyWriters, LoseNothing) {
    const TempStore store;
    std::deque<Agent> writers;
    ModelStore model;
    for (int i = 0; i < kWriters; ++i) {
        writers.emplace_back(std::string(VQREG_AGENT_PATH));
        ASSERT_EQ(writers.back().open(store.path()), REGLIB_OK);
        model.set(".", valueOf(i), kWrites);
    }
    for (int i = 0; i < kWriters; ++i) {
        writers[static_cast<std::size_t>(i)].tell(
            {"stress", ".", valueOf(i), std::to_string(kWrites)});
    }
    for (Agent& writer : writers) {
        const vqtest::Answer answer = writer.answer();
        EXPECT_EQ(answer.code, REGLIB_OK);
        EXPECT_THAT(answer.fields, testing::ElementsAre("0"));
    }
    EXPECT_EQ(store.read(), model.text());
    EXPECT_THAT(store.files(), testing::ElementsAre("store.cfg", "store.cfg.bak"));
    for (Agent& writer : writers) {
        EXPECT_EQ(writer.enumValues("."), model.enumValues("."));
    }
}

TEST(ManyWriters, OpenAMissingStoreTogether) {
    const TempStore store;
    std::deque<Agent> agents;
    for (int i = 0; i < kWriters; ++i) {
        agents.emplace_back(std::string(VQREG_AGENT_PATH));
    }
    ModelStore model;
    for (int i = 0; i < kWriters; ++i) {
        Agent& agent = agents[static_cast<std::size_t>(i)];
        agent.tell({"open", store.path(), "-"});
        agent.tell({"setd", ".", valueOf(i), "7"});
        model.set(".", valueOf(i), 7u);
    }
    for (Agent& agent : agents) {
        EXPECT_EQ(agent.answer().code, REGLIB_OK);
        EXPECT_EQ(agent.answer().code, REGLIB_OK);
    }
    EXPECT_EQ(store.read(), model.text());
}

TEST_F(KilledWriters, LeaveACompleteFileAndAFreeLock) {
    std::mt19937 random(20260815);
    std::uniform_int_distribution<int> microseconds(0, 2000);
    for (int round = 0; round < kKills && !HasFatalFailure(); ++round) {
        SCOPED_TRACE(round);
        killOneWriter(std::chrono::microseconds(microseconds(random)));
        expectAFineStore();
    }
}

TEST_F(KilledWriters, DoNotHoldUpTheOthers) {
    Agent steady(VQREG_AGENT_PATH);
    ASSERT_EQ(steady.open(store.path()), REGLIB_OK);
    steady.tell({"stress", "Kept", "Steady", "2000"});
    for (int round = 0; round < 20 && !HasFatalFailure(); ++round) {
        killOneWriter(std::chrono::microseconds(100 * round));
    }
    EXPECT_EQ(steady.answer().fields, vqtest::Fields{"0"});
    EXPECT_EQ(witness.get("Kept", "Steady"), Value::ofDword(2000));
}

TEST(ForkedProcesses, GoOnWithTheSessionOfTheirParent) {
    const TempStore store;
    CRegLib session(store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey& root = *session.RootKey();
    ASSERT_EQ(session.VQRegSetValue(root, "Parent", 1ul), REGLIB_OK);
    for (unsigned long round = 1; round <= 3; ++round) {
        ForkedChild child(
            [&] { return session.VQRegSetValue(root, "Child", round) == REGLIB_OK ? 0 : 1; });
        EXPECT_EQ(child.wait(), 0);
        std::uint32_t number = 0;
        unsigned long size = sizeof number;
        CRegLib::eDataType type = CRegLib::eNone;
        EXPECT_EQ(session.VQRegQueryValue(root, "Child", type,
                                          reinterpret_cast<unsigned char*>(&number), &size),
                  REGLIB_OK);
        EXPECT_EQ(number, round);
    }
    EXPECT_EQ(store.read(), "[Velquist]\n\"Child\"=dword:00000003\n\"Parent\"=dword:00000001\n");
}

TEST(ForkedProcesses, WriteAtTheSameTime) {
    const TempStore store;
    CRegLib session(store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    const auto write = [&session](const char* name) {
        bool isSet = true;
        for (unsigned long number = 1; number <= kWrites; ++number) {
            isSet = session.VQRegSetValue(*session.RootKey(), name, number) == REGLIB_OK && isSet;
        }
        return isSet;
    };
    ForkedChild child([&] { return write("Child") ? 0 : 1; });
    EXPECT_TRUE(write("Parent"));
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(store.read(), "[Velquist]\n\"Child\"=dword:000000FA\n\"Parent\"=dword:000000FA\n");
}
