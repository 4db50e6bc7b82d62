// Several threads in one store of the C interface.
#include <atomic>
#include <thread>

#include "c/CStoreFixture.h"

using CThreads = vqtest::CStoreTest;

// Keys come and go under the handles that belong to their paths.
TEST_F(CThreads, UseTheSamePathsWhileTheKeyIsDeletedAndMade) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 60;
    std::atomic<int> strange{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < kRounds; ++round) {
                const int set = vqreg_set_dword(store, "Common/Key", std::to_string(i).c_str(),
                                                static_cast<std::uint32_t>(round));
                std::uint32_t found = 0;
                const int got =
                    vqreg_get_dword(store, "Common/Key", std::to_string(i).c_str(), &found);
                strange += set != VQREG_OK && set != VQREG_E_INVALID_HANDLE;
                strange += got != VQREG_OK && got != VQREG_E_NOT_FOUND &&
                           got != VQREG_E_KEY_NOT_FOUND && got != VQREG_E_INVALID_HANDLE;
                vqreg_delete_value(store, "Common/Key", std::to_string(i).c_str());
                const int gone = vqreg_delete_key(store, "Common/Key");
                strange += gone != VQREG_OK && gone != VQREG_E_KEY_NOT_EMPTY &&
                           gone != VQREG_E_KEY_NOT_FOUND;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(strange, 0);
}

TEST_F(CThreads, CountTogetherInUpdates) {
    constexpr int kThreads = 4;
    constexpr std::uint32_t kTimes = 50;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([this] {
            for (std::uint32_t time = 0; time < kTimes; ++time) {
                EXPECT_EQ(vqreg_begin_update(store), VQREG_OK);
                EXPECT_EQ(
                    vqreg_set_dword(store, "K", "Count", number("K", "Count").value_or(0) + 1),
                    VQREG_OK);
                EXPECT_EQ(vqreg_end_update(store), VQREG_OK);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(number("K", "Count"), kThreads * kTimes);
}
