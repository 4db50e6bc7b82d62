// VQREG_TEST_SECONDS makes the test longer. The long form takes ten minutes, more than ctest grants:
//   VQREG_TEST_SECONDS=600 bin/private_root bin/process --gtest_filter='Linear.*'
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "support/LinearRounds.h"

namespace {

constexpr long kUsualSeconds = 20;

}  // namespace

TEST(Linear, WhateverIsReadIsTheNewestOfAll) {
    const char* const variable = std::getenv("VQREG_TEST_SECONDS");
    long seconds = variable ? std::max(1L, std::atol(variable)) : kUsualSeconds;
    vqtest::LinearRounds rounds(7);
    for (; seconds > 0 && !HasFailure(); seconds -= vqtest::kRoundSeconds) {
        rounds.round(std::chrono::seconds(std::min(seconds, vqtest::kRoundSeconds)));
    }
}
