#include "support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using namespace std::chrono_literals;
using vqtest::waitUntil;

TEST(Wait, ReturnsAtOnceWhatHoldsAlready) {
    int asked = 0;
    EXPECT_TRUE(waitUntil([&] { return ++asked == 1; }, 0ms));
    EXPECT_EQ(asked, 1);
}

TEST(Wait, SeesWhatAnotherThreadDoes) {
    std::atomic<bool> flag{false};
    std::thread other([&] { flag = true; });
    EXPECT_TRUE(waitUntil([&] { return flag.load(); }));
    other.join();
}

TEST(Wait, GivesUpAtTheDeadlineAndNotBefore) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(waitUntil([] { return false; }, 30ms));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
}

TEST(Wait, AsksOnceMoreAfterTheDeadline) {
    int asked = 0;
    EXPECT_TRUE(waitUntil([&] { return ++asked == 2; }, 0ms));
}
