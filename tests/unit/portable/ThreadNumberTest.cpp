#include "portable/ThreadNumber.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <thread>

#include "support/ForkedChild.h"

using VQRegLib::currentThreadNumber;

namespace {

std::uint64_t numberOfNewThread() {
    std::uint64_t number = 0;
    std::thread([&] { number = currentThreadNumber(); }).join();
    return number;
}

}  // namespace

TEST(ThreadNumber, IsNeverZeroAndStaysTheSame) {
    const std::uint64_t number = currentThreadNumber();
    EXPECT_NE(number, 0u);
    EXPECT_EQ(currentThreadNumber(), number);
}

// The system gives their handles to the next ones.
TEST(ThreadNumber, IsNotThatOfAThreadThatHasEnded) {
    std::set<std::uint64_t> numbers{currentThreadNumber()};
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(numbers.insert(numberOfNewThread()).second);
    }
}

TEST(ThreadNumber, InAForkedChildWhoForkedHasItStill) {
    const std::uint64_t number = currentThreadNumber();
    vqtest::ForkedChild child([&] {
        if (currentThreadNumber() != number) {
            return 1;
        }
        return numberOfNewThread() != number ? 0 : 2;
    });
    EXPECT_EQ(child.wait(), 0);
}
