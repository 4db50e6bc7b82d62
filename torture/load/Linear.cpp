// What several processes read and write has one order. The rounds are those of the test of the same name,
// as many seconds as are asked for.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "load/Load.h"
#include "support/LinearRounds.h"

namespace vqtorture {

void linear(Run& run) {
    testing::FLAGS_gtest_throw_on_failure = true;  // what does not hold ends the check
    vqtest::LinearRounds rounds(static_cast<unsigned>(run.seed()));
    const auto count = static_cast<long>(run.count());
    for (long done = 0; done < count; done += vqtest::kRoundSeconds) {
        const long seconds = std::min(count - done, vqtest::kRoundSeconds);
        run.add("updates", static_cast<double>(rounds.round(std::chrono::seconds(seconds))));
        run.add("seconds", static_cast<double>(seconds));
    }
}

}  // namespace vqtorture
