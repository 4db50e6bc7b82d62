// The event: set by any thread until a wait takes it.
#include "portable/Event.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>
#include <vector>

#include "portable/TerminateWait.h"
#include "support/Threads.h"
#include "support/Wait.h"

using VQRegLib::CPEvent;
using VQRegLib::CTerminateWait;
using vqtest::waitUntil;

TEST(Event, IsNotSetAtFirst) {
    CPEvent event(1, "", 1);
    EXPECT_FALSE(event.wait(0, nullptr));
    EXPECT_FALSE(event.wait(5, nullptr));
}

TEST(Event, StaysSetUntilAWaitTakesIt) {
    CPEvent event(1, "", 1);
    event.set(0);
    EXPECT_TRUE(event.wait(CPEvent::kInfinite, nullptr));
    EXPECT_FALSE(event.wait(0, nullptr));
    event.set(0);
    EXPECT_TRUE(event.wait(0, nullptr));
}

TEST(Event, SetTwiceIsTakenOnce) {
    CPEvent event(1, "", 1);
    event.set(0);
    event.set(0);
    event.set(0);
    EXPECT_TRUE(event.wait(0, nullptr));
    EXPECT_FALSE(event.wait(0, nullptr));
}

TEST(Event, WaitsNoShorterThanItIsTold) {
    CPEvent event(1, "", 1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(event.wait(40, nullptr));
    // The clock of the wait counts whole milliseconds.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(39));
}

TEST(Event, WakesTheThreadThatWaits) {
    CPEvent event(1, "", 1);
    std::atomic<int> taken{0};
    std::thread waiting([&] {
        for (int i = 0; i < 3; ++i) {
            taken += event.wait(CPEvent::kInfinite, nullptr) ? 1 : 100;
        }
    });
    for (int i = 1; i <= 3; ++i) {
        event.set(0);
        EXPECT_TRUE(waitUntil([&] { return taken == i; }));
    }
    waiting.join();
}

TEST(Event, LosesNoWakeUp) {
    // Each setter announces its work first; the taker must have seen all of it after its last take.
    constexpr int kSetters = 4;
    constexpr int kRounds = 5000;
    CPEvent event(1, "", 1);
    std::atomic<int> announced{0};
    int seen = 0;
    std::vector<std::thread> setters;
    for (int i = 0; i < kSetters; ++i) {
        setters.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                ++announced;
                event.set(0);
            }
        });
    }
    while (seen < kSetters * kRounds && event.wait(20000, nullptr)) {
        seen = announced;
    }
    EXPECT_EQ(seen, kSetters * kRounds);
    for (std::thread& setter : setters) {
        setter.join();
    }
}

TEST(Event, AWaitCanBeTerminated) {
    CPEvent event(1, "", 1);
    CTerminateWait terminate;
    std::atomic<bool> isOver{false};
    std::thread waiting([&] {
        EXPECT_FALSE(event.wait(CPEvent::kInfinite, &terminate));
        isOver = true;
    });
    EXPECT_FALSE(waitUntil([&] { return isOver.load(); }, std::chrono::milliseconds(20)));
    terminate.terminate();
    EXPECT_TRUE(waitUntil([&] { return isOver.load(); }));
    waiting.join();
    EXPECT_FALSE(event.wait(CPEvent::kInfinite, &terminate));
}

TEST(Event, AWaitThatCanBeTerminatedTakesAndTimesOutAsAnyOther) {
    CPEvent event(1, "", 1);
    CTerminateWait terminate;
    EXPECT_FALSE(event.wait(5, &terminate));
    EXPECT_FALSE(event.wait(120, &terminate));
    event.set(0);
    EXPECT_TRUE(event.wait(CPEvent::kInfinite, &terminate));
    EXPECT_FALSE(event.wait(0, &terminate));
}

TEST(Event, AWaitGoesOnAfterASignal) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);  // without SA_RESTART
    CPEvent event(1, "", 1);
    for (const unsigned long limit : {CPEvent::kInfinite, 60000ul}) {
        std::atomic<pthread_t> thread{};
        vqtest::CallElsewhere waiting([&] {
            thread = ::pthread_self();
            EXPECT_TRUE(event.wait(limit, nullptr));
        });
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(waiting.waits());
            ::pthread_kill(thread, SIGUSR1);
        }
        EXPECT_TRUE(waiting.waits());
        event.set(0);
        EXPECT_TRUE(waiting.returns());
    }
}
