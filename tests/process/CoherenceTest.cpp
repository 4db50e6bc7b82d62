// What one process changes is what the others see, and nobody reads without need.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using vqtest::Agent;
using vqtest::TempStore;
using vqtest::TraceLog;
using vqtest::Value;

namespace {

class Coherence : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(writer.open(store.path()), REGLIB_OK);
        ASSERT_EQ(reader.open(store.path()), REGLIB_OK);
        ASSERT_EQ(writer.create("Net"), REGLIB_OK);
    }

    // How often a process has opened the store's file, or a new file to replace it.
    std::size_t opens(const Agent& agent) const {
        const std::vector<std::string> lines = log.texts(TraceLog::Addresses::eKeep, agent.pid());
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
                return line.starts_with("CRegLibImplFile::FileOpen") &&
                       line.find('"' + store.path()) != std::string::npos;
            }));
    }

    TraceLog log{8};
    TempStore store;
    Agent writer{VQREG_AGENT_PATH};
    Agent reader{VQREG_AGENT_PATH};
};

}  // namespace

TEST_F(Coherence, EveryKindOfValueIsSeenAtOnce) {
    ASSERT_EQ(writer.set("Net", "Value", 1u), REGLIB_OK);
    EXPECT_EQ(reader.get("net", "VALUE"), Value::ofDword(1));
    ASSERT_EQ(writer.set("Net", "Value", 2u), REGLIB_OK);
    EXPECT_EQ(reader.get("Net", "Value"), Value::ofDword(2));
    ASSERT_EQ(writer.set("Net", "Value", "text"), REGLIB_OK);
    EXPECT_EQ(reader.get("Net", "Value"), Value::ofText("text"));
    ASSERT_EQ(writer.setBinary("Net", "Value", std::string("\0\x01", 2)), REGLIB_OK);
    EXPECT_EQ(reader.get("Net", "Value"), Value::ofBinary(std::string("\0\x01", 2)));
    EXPECT_EQ(reader.type("Net", "Value").type, CRegLib::eBinary);
}

TEST_F(Coherence, KeysAreSeenAtOnce) {
    EXPECT_EQ(reader.openKey("Net/Eth"), REGLIB_E_KEY_NOT_FOUND);
    ASSERT_EQ(writer.create("Net/Eth"), REGLIB_OK);
    EXPECT_THAT(reader.enumKeys("Net").names, ElementsAre("Eth"));
    EXPECT_EQ(reader.openKey("Net/Eth"), REGLIB_OK);
}

TEST_F(Coherence, ProcessesTakeTurns) {
    for (unsigned turn = 1; turn <= 20; ++turn) {
        Agent& one = turn % 2 == 0 ? writer : reader;
        Agent& other = turn % 2 == 0 ? reader : writer;
        ASSERT_EQ(one.set("Net", "Turn", turn), REGLIB_OK);
        ASSERT_EQ(other.get("Net", "Turn"), Value::ofDword(turn));
    }
}

TEST_F(Coherence, AProcessThatStartsLaterSeesEverything) {
    ASSERT_EQ(writer.set("Net", "Value", 1u), REGLIB_OK);
    Agent late(VQREG_AGENT_PATH);
    ASSERT_EQ(late.open(store.path()), REGLIB_OK);
    EXPECT_EQ(late.get("Net", "Value"), Value::ofDword(1));
}

TEST_F(Coherence, RootKeysOfOneFileSeeEachOther) {
    Agent site(VQREG_AGENT_PATH);
    ASSERT_EQ(site.open(store.path(), "Velquist/Net"), REGLIB_OK);
    ASSERT_EQ(writer.set("Net", "Value", 1u), REGLIB_OK);
    EXPECT_EQ(site.get(".", "Value"), Value::ofDword(1));
    ASSERT_EQ(site.set(".", "Value", 2u), REGLIB_OK);
    EXPECT_EQ(writer.get("Net", "Value"), Value::ofDword(2));
}

TEST_F(Coherence, TheFileIsNotReadAgainUnlessSomebodyWrote) {
    ASSERT_EQ(writer.set("Net", "Value", 1u), REGLIB_OK);
    EXPECT_EQ(reader.get("Net", "Value"), Value::ofDword(1));
    const std::size_t before = opens(reader);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(reader.get("Net", "Value"), Value::ofDword(1));
        EXPECT_EQ(writer.get("Net", "Value"), Value::ofDword(1));
        EXPECT_EQ(writer.set("Net", "Value", 1u), REGLIB_OK);
        EXPECT_EQ(reader.enumValues("Net").code, REGLIB_OK);
    }
    EXPECT_EQ(opens(reader), before);
}

TEST_F(Coherence, TheFileIsReadOnceForAnyNumberOfWrites) {
    EXPECT_EQ(reader.openKey("Net"), REGLIB_OK);
    const std::size_t before = opens(reader);
    ASSERT_EQ(writer.stress("Net", "Value", 10), 0u);
    EXPECT_EQ(opens(reader), before);
    EXPECT_EQ(reader.get("Net", "Value"), Value::ofDword(10));
    EXPECT_EQ(reader.get("Net", "Value"), Value::ofDword(10));
    EXPECT_EQ(opens(reader), before + 1);
}

TEST_F(Coherence, AWriterDoesNotReadItsOwnChanges) {
    const std::size_t before = opens(writer);
    for (unsigned i = 1; i <= 10; ++i) {
        ASSERT_EQ(writer.set("Net", "Value", i), REGLIB_OK);
    }
    EXPECT_EQ(opens(writer), before + 10);
}

TEST_F(Coherence, AForeignDeletionIsMergedBack) {
    ASSERT_EQ(writer.set("Net", "Gone", 1u), REGLIB_OK);
    ASSERT_EQ(writer.create("Old"), REGLIB_OK);
    EXPECT_EQ(reader.get("Net", "Gone"), Value::ofDword(1));
    ASSERT_EQ(writer.deleteValue("Net", "Gone"), REGLIB_OK);
    ASSERT_EQ(writer.deleteKey("Old"), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n[Velquist/Net]\n");
    // The reader keeps what it has once read, and writes it with its next change.
    EXPECT_EQ(reader.get("Net", "Gone"), Value::ofDword(1));
    EXPECT_EQ(reader.openKey("Old"), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n[Velquist/Net]\n");
    ASSERT_EQ(reader.set("Net", "New", 2u), REGLIB_OK);
    EXPECT_EQ(store.read(),
              "[Velquist]\n[Velquist/Net]\n\"Gone\"=dword:00000001\n\"New\"=dword:00000002\n"
              "[Velquist/Old]\n");
    EXPECT_EQ(writer.get("Net", "Gone"), Value::ofDword(1));
    EXPECT_EQ(writer.openKey("Old"), REGLIB_OK);
}

TEST_F(Coherence, ADeletionIsSeenByThoseWhoHaveNotReadTheValue) {
    ASSERT_EQ(writer.set("Net", "Gone", 1u), REGLIB_OK);
    ASSERT_EQ(writer.deleteValue("Net", "Gone"), REGLIB_OK);
    EXPECT_EQ(reader.get("Net", "Gone"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_THAT(reader.enumValues("Net").names, IsEmpty());
}

TEST_F(Coherence, OthersReadTheSpellingOfTheFile) {
    ASSERT_EQ(writer.set("Net", "Speed", "slow"), REGLIB_OK);
    ASSERT_EQ(writer.set("Net", "SPEED", "fast"), REGLIB_OK);
    EXPECT_THAT(writer.enumValues("Net").names, ElementsAre(Pair("Speed", CRegLib::eString)));
    EXPECT_THAT(reader.enumValues("Net").names, ElementsAre(Pair("SPEED", CRegLib::eString)));
}

TEST_F(Coherence, AMalformedFileStopsEverybodyUntilItIsMended) {
    ASSERT_EQ(writer.set("Net", "Value", "two\nlines"), REGLIB_OK);
    EXPECT_EQ(reader.get("Net", "Value"), Value::failure(REGLIB_E_BAD_FORMAT));
    EXPECT_EQ(reader.set("Net", "Other", 1u), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(reader.create("Net/Eth"), REGLIB_E_BAD_FORMAT);
    ASSERT_EQ(writer.set("Net", "Value", "one line"), REGLIB_OK);
    EXPECT_EQ(reader.get("Net", "Value"), Value::ofText("one line"));
}
