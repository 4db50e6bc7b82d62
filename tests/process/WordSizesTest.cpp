// Processes whose pointers have another size share the lock, the stamp and the block of a store.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/Results.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::Value;

namespace {

// Two agents on one store: one of this build, one of a build with the other word size.
class WordSizes : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(VQREG_OTHER_AGENT_PATH)) {
            GTEST_SKIP() << "there is no build with another word size";
        }
        other = std::make_unique<Agent>(std::string(VQREG_OTHER_AGENT_PATH));
        ASSERT_EQ(own.open(store.path()), REGLIB_OK);
        ASSERT_EQ(other->open(store.path()), REGLIB_OK);
    }

    vqtest::TempStore store;
    Agent own{VQREG_AGENT_PATH};
    std::unique_ptr<Agent> other;
};

}  // namespace

TEST_F(WordSizes, SeeEachChangeOfOneAnotherAtOnce) {
    for (std::uint32_t number = 1; number <= 100; ++number) {
        ASSERT_EQ(own.set(".", "A", number), REGLIB_OK);
        ASSERT_EQ(other->get(".", "A"), Value::ofDword(number));
        ASSERT_EQ(other->set(".", "B", number), REGLIB_OK);
        ASSERT_EQ(own.get(".", "B"), Value::ofDword(number));
    }
}

TEST_F(WordSizes, LoseNothingWhenBothWriteAtOnce) {
    constexpr std::uint32_t kTimes = 500;
    const std::string times = std::to_string(kTimes);
    own.tell({"stress", ".", "A", times});
    other->tell({"stress", ".", "B", times});
    EXPECT_EQ(own.answer().fields.at(0), "0") << "calls that failed";
    EXPECT_EQ(other->answer().fields.at(0), "0") << "calls that failed";
    for (Agent* agent : {&own, other.get()}) {
        EXPECT_EQ(agent->get(".", "A"), Value::ofDword(kTimes));
        EXPECT_EQ(agent->get(".", "B"), Value::ofDword(kTimes));
    }
}
