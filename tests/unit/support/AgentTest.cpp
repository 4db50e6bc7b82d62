// The test's side of an agent, against shell scripts in place of the agent.
#include "support/Agent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>

#include "VQRegLib.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using vqtest::Agent;
using vqtest::ExitStatus;

namespace {

Agent::Options shell(const std::string& script) {
    return {.program = "/bin/sh", .arguments = {"-c", script}};
}

constexpr const char* kEcho =
    R"(while IFS= read -r line; do printf '00000000\t%s\n' "$line" >&3; done)";

constexpr ExitStatus kKilled = {.isKilled = true, .number = SIGKILL};

}  // namespace

TEST(Agent, PassesOrdersAndAnswers) {
    Agent agent(shell(kEcho));
    const vqtest::Answer answer = agent.ask({"a%b", "", "c\td\n"});
    EXPECT_EQ(answer.code, VQRegLib::REGLIB_OK);
    EXPECT_THAT(answer.fields, ElementsAre("a%b", "", "c\td\n"));
}

TEST(Agent, ReturnsTheCodeOfAnAnswer) {
    Agent agent(shell("read x; echo C1250FA8 >&3; read x"));
    EXPECT_EQ(agent.openKey("x"), VQRegLib::REGLIB_E_KEY_NOT_FOUND);
}

TEST(Agent, TakesValuesApart) {
    Agent agent(shell(R"(read x; printf '00000000\t3\t6100\n' >&3
                         read x; printf '00000000\tA\t2\tB\t1\n' >&3; read x)"));
    EXPECT_EQ(agent.get(".", "x"), vqtest::Value::ofText("a"));
    EXPECT_THAT(agent.enumValues(".").names,
                ElementsAre(testing::Pair("A", 2), testing::Pair("B", 1)));
}

TEST(Agent, AnswersCanBeCollectedLater) {
    Agent agent(shell(kEcho));
    agent.tell({"one"});
    agent.tell({"two"});
    EXPECT_THROW(agent.ask({"three"}), std::logic_error);
    EXPECT_THAT(agent.answer().fields, ElementsAre("one"));
    EXPECT_THAT(agent.answer().fields, ElementsAre("two"));
    EXPECT_THROW(agent.answer(), std::logic_error);
    EXPECT_THAT(agent.ask({"three"}).fields, ElementsAre("three"));
}

TEST(Agent, KeepsOtherOutputApart) {
    Agent agent(shell("read x; echo noise; printf unfinished; echo 00000000 >&3; read x"));
    EXPECT_EQ(agent.ask({"x"}).code, 0);
    EXPECT_EQ(agent.otherOutput(), "noise\nunfinished");
}

TEST(Agent, SurvivesMoreOutputThanAPipeHolds) {
    Agent agent(shell("read x; head -c 300000 /dev/zero; echo 00000000 >&3; read x"));
    EXPECT_EQ(agent.ask({"x"}).code, 0);
    EXPECT_EQ(agent.otherOutput().size(), 300000u);
}

TEST(Agent, MayCloseItsOutput) {
    Agent agent(shell("exec >&-; while read x; do echo 00000000 >&3; done"));
    EXPECT_EQ(agent.ask({"x"}).code, 0);
    EXPECT_EQ(agent.ask({"x"}).code, 0);
    EXPECT_EQ(agent.otherOutput(), "");
}

TEST(Agent, PassesVeryLongOrders) {
    Agent agent(shell(kEcho));
    const std::string text(500000, 'x');
    EXPECT_EQ(agent.ask({text}).fields.at(0), text);
}

TEST(Agent, AddsToTheEnvironment) {
    Agent::Options options =
        shell(R"(read x; printf '00000000\t%s\t%s\n' "$VQ_A" "$PATH" >&3; read x)");
    options.environment = {"VQ_A=1=2", "PATH=/nowhere"};
    Agent agent(options);
    EXPECT_THAT(agent.ask({"x"}).fields, ElementsAre("1=2", "/nowhere"));
}

TEST(Agent, ReportsItsEnd) {
    Agent agent(shell("exit 5"));
    EXPECT_EQ(agent.waitExit(), (ExitStatus{.isExited = true, .number = 5}));
    EXPECT_EQ(agent.waitExit().number, 5);
    EXPECT_THROW(agent.ask({"x"}), std::runtime_error);
    EXPECT_THROW(agent.kill(SIGKILL), std::logic_error);
}

TEST(Agent, CanBeKilledAmidAnOrder) {
    Agent agent(shell("read x; exec sleep 1000"));
    agent.tell({"x"});
    agent.kill(SIGKILL);
    EXPECT_EQ(agent.waitExit(), kKilled);
    EXPECT_THROW(agent.answer(), std::runtime_error);
}

TEST(Agent, AnswersBeforeTheEndCanStillBeRead) {
    Agent agent(shell("read x; echo 00000000 >&3"));
    agent.tell({"x"});
    EXPECT_TRUE(agent.waitExit().isExited);
    EXPECT_EQ(agent.answer().code, 0);
}

TEST(Agent, DoesNotWaitForEver) {
    Agent::Options options = shell("exec sleep 1000");
    options.deadline = 50ms;
    Agent agent(options);
    EXPECT_THROW(agent.ask({"x"}), std::runtime_error);
    EXPECT_THROW(agent.waitExit(), std::runtime_error);
}

TEST(Agent, RefusesOrdersThatAreNotUnderstood) {
    Agent agent(shell(R"(read x; printf 'FFFFFFFF\tno such order\n' >&3; read x)"));
    EXPECT_THROW(agent.ask({"x"}), std::runtime_error);
}

TEST(Agent, ReportsAMissingProgram) {
    EXPECT_THROW(Agent("/nowhere/agent"), std::runtime_error);
}

TEST(Agent, EndsWithTheObject) {
    pid_t pid = 0;
    {
        Agent agent(shell("exec sleep 1000"));
        pid = agent.pid();
    }
    EXPECT_EQ(::kill(pid, 0), -1);
}
