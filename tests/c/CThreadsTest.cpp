// Several threads in one store of the C interface.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "c/CStoreFixture.h"
#include "support/Handlers.h"
#include "support/Wait.h"

using CThreads = vqtest::CStoreTest;

namespace {

int ignoreValue(void* /*context*/, const char* /*name*/, vqreg_type /*type*/, const void* /*data*/,
                size_t /*size*/) {
    return 0;
}

}  // namespace

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
                strange += set != VQREG_OK;
                strange +=
                    got != VQREG_OK && got != VQREG_E_NOT_FOUND && got != VQREG_E_KEY_NOT_FOUND;
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

// A handle that comes too late for its path goes, which needs the session lock; its holder may be asking for
// a path meanwhile.
TEST_F(CThreads, MayNamePathsForTheFirstTimeInAndBesideUpdates) {
    ::alarm(60);
    constexpr int kThreads = 6;
    constexpr int kRounds = 40;
    constexpr int kPaths = 20;
    std::atomic<int> strange{0};
    for (int round = 0; round < kRounds; ++round) {
        vqreg_store* const shared = open();
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                for (int at = 0; at < kPaths; ++at) {
                    const std::string path = "P" + std::to_string(at);
                    strange += i % 2 == 0 && vqreg_begin_update(shared) != VQREG_OK;
                    strange += vqreg_create_key(shared, path.c_str()) != VQREG_OK;
                    strange += i % 2 == 0 && vqreg_end_update(shared) != VQREG_OK;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        vqreg_close(shared);
    }
    ::alarm(0);
    EXPECT_EQ(strange, 0);
}

TEST_F(CThreads, AListHasWhatIsThereAllTheTime) {
    constexpr int kSteady = 40;
    for (int i = 0; i < kSteady; ++i) {
        ASSERT_EQ(vqreg_set_dword(store, "K", ("s" + std::to_string(i)).c_str(), 1), VQREG_OK);
    }
    std::atomic<bool> isOver{false};
    std::thread changing([&] {
        while (!isOver) {
            vqreg_begin_update(store);
            vqreg_set_dword(store, "K", "a", 1);
            vqreg_delete_value(store, "K", "a");
            vqreg_set_dword(store, "K", "b", 1);
            vqreg_end_update(store);
            vqreg_delete_value(store, "K", "b");
        }
    });
    int lacking = 0;
    for (int round = 0; round < 6000; ++round) {
        char** names = nullptr;
        size_t count = 0;
        ASSERT_EQ(vqreg_list_values(store, "K", &names, &count), VQREG_OK);
        lacking += std::count_if(names, names + count,
                                 [](const char* name) { return *name == 's'; }) != kSteady;
        vqreg_free(names);
    }
    isOver = true;
    changing.join();
    EXPECT_EQ(lacking, 0);
}

// The other thread holds the session lock of the other store, and waits for the update to end.
TEST_F(CThreads, WithAnUpdateAreRefusedInAnotherStoreOfTheFileAndHangInNone) {
    vqreg_store* const other = vqreg_open(file.path().c_str(), "Other", nullptr);
    ASSERT_NE(other, nullptr);
    ASSERT_EQ(vqreg_set_dword(other, "K", "V", 1), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(other, "K", 0, &key), VQREG_OK);
    vqreg_key* root = nullptr;
    ASSERT_EQ(vqreg_open_key(other, "", 0, &root), VQREG_OK);
    ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
    std::atomic<bool> hasBegun{false};
    int ofOther = VQREG_E_FAIL;
    std::thread thread([&] {
        hasBegun = true;
        ofOther = vqreg_set_dword(other, "K", "V", 2);
    });
    int looks = 0;
    EXPECT_TRUE(vqtest::waitUntil([&] {
        const std::vector<vqtest::ThreadInfo> all = vqtest::threads();
        const auto awake = std::count_if(all.begin(), all.end(),
                                         [](const auto& each) { return each.state != 'S'; });
        looks = hasBegun && awake <= 1 ? looks + 1 : 0;
        return looks == 5;
    }));
    ::alarm(60);  // instead of a wait without end
    EXPECT_EQ(vqreg_set_dword(other, "K", "V", 3), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_set_dword(key, "V", 3), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_delete_value(other, "K", "V"), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_delete_value(key, "V"), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_create_key(other, "New/Key"), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_delete_key(other, "K"), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_visit_values(other, "K", ignoreValue, nullptr), VQREG_E_FAIL);
    std::uint32_t number = 7;
    EXPECT_EQ(vqreg_get_dword(other, "", "V", &number), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_get_dword(root, "V", &number), VQREG_E_FAIL);
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(vqreg_end_update(store), VQREG_OK);
    thread.join();
    ::alarm(0);
    EXPECT_EQ(ofOther, VQREG_OK);
    EXPECT_EQ(vqreg_get_dword(other, "K", "V", &number), VQREG_OK);
    EXPECT_EQ(number, 2u);
    vqreg_close_key(root);
    vqreg_close_key(key);
    vqreg_close(other);
}
