// Every order of an agent once: what tests of several processes rely on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using vqtest::Agent;
using vqtest::ExitStatus;
using vqtest::TempStore;
using vqtest::Value;

namespace {

class AgentOrders : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(agent.open(store.path(), "Root"), REGLIB_OK); }

    TempStore store;
    Agent agent{VQREG_AGENT_PATH};
};

}  // namespace

TEST_F(AgentOrders, Keys) {
    EXPECT_EQ(agent.openKey("A/B"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(agent.create("A/B"), REGLIB_OK);
    EXPECT_EQ(agent.create("c"), REGLIB_OK);
    EXPECT_EQ(agent.openKey("a/b"), REGLIB_OK);
    EXPECT_EQ(agent.openKey("."), REGLIB_OK);
    EXPECT_THAT(agent.enumKeys(".").names, ElementsAre("A", "c"));
    EXPECT_EQ(agent.enumKeys("x").code, REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(agent.deleteKey("A"), REGLIB_E_KEY_NOT_EMPTY);
    EXPECT_EQ(agent.deleteKey("A/B"), REGLIB_OK);
    EXPECT_EQ(agent.deleteKey("A"), REGLIB_OK);
    EXPECT_THAT(agent.enumKeys(".").names, ElementsAre("c"));
}

TEST_F(AgentOrders, Values) {
    ASSERT_EQ(agent.create("A"), REGLIB_OK);
    const std::string bytes("\0\n\t%\xff", 5);
    EXPECT_EQ(agent.set("A", "Number", 0xFFFFFFFFu), REGLIB_OK);
    EXPECT_EQ(agent.set("A", "Text", "50%\tof it"), REGLIB_OK);
    EXPECT_EQ(agent.setBinary("A", "Bytes", bytes), REGLIB_OK);
    EXPECT_EQ(agent.get("A", "number"), Value::ofDword(0xFFFFFFFFu));
    EXPECT_EQ(agent.get("A", "text"), Value::ofText("50%\tof it"));
    EXPECT_EQ(agent.get("A", "bytes"), Value::ofBinary(bytes));
    EXPECT_EQ(agent.type("A", "Bytes").type, CRegLib::eBinary);
    EXPECT_EQ(agent.type("A", "x"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_THAT(agent.enumValues("A").names,
                ElementsAre(Pair("Bytes", CRegLib::eBinary), Pair("Number", CRegLib::eDword),
                            Pair("Text", CRegLib::eString)));
    EXPECT_EQ(agent.deleteValue("A", "Text"), REGLIB_OK);
    EXPECT_EQ(agent.get("A", "Text"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_EQ(agent.set("B", "Number", 1), REGLIB_E_KEY_NOT_FOUND);
}

TEST_F(AgentOrders, Stress) {
    EXPECT_EQ(agent.stress(".", "Number", 20), 0u);
    EXPECT_EQ(agent.get(".", "Number").dword(), 20u);
    EXPECT_EQ(agent.stress("missing", "Number", 5), 5u);
}

TEST_F(AgentOrders, HandlersCanBeSwitched) {
    agent.watch();
    agent.unwatch();
    EXPECT_EQ(agent.changes(), 0u);
}

TEST_F(AgentOrders, PrintedOutputIsKeptApart) {
    ASSERT_EQ(agent.create("Printed"), REGLIB_OK);
    agent.dump();
    EXPECT_THAT(agent.otherOutput(), HasSubstr("Printed"));
}

TEST_F(AgentOrders, SessionsCanBeReplacedAndClosed) {
    EXPECT_EQ(agent.open(store.path(), "Other"), REGLIB_OK);
    EXPECT_EQ(agent.close(), REGLIB_OK);
    EXPECT_THROW(agent.openKey("x"), std::runtime_error);
}

TEST_F(AgentOrders, NullTextsSelectTheDefaults) {
    EXPECT_EQ(agent.open(), REGLIB_OK);
    EXPECT_THAT(vqtest::readFile("/etc/Velquist.cfg"), HasSubstr("[Velquist]\n"));
}

TEST_F(AgentOrders, AnAgentLeavesInPeace) {
    EXPECT_EQ(agent.exit(), REGLIB_OK);
    EXPECT_EQ(agent.waitExit(), (ExitStatus{.isExited = true}));
}

TEST(Agents, SeeTheSameStore) {
    const TempStore store;
    Agent first(VQREG_AGENT_PATH);
    Agent second(VQREG_AGENT_PATH);
    ASSERT_EQ(first.open(store.path()), REGLIB_OK);
    ASSERT_EQ(second.open(store.path()), REGLIB_OK);
    EXPECT_EQ(first.set(".", "Number", 7), REGLIB_OK);
    EXPECT_EQ(second.get(".", "Number").dword(), 7u);
}
