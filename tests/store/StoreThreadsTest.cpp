// Several threads in one store of VQRegStore.h.
#include <atomic>
#include <thread>

#include "store/CxxStoreFixture.h"

namespace {

class StoreThreads : public vqtest::CxxStoreTest {
protected:
    template <typename Work>
    static void inThreads(int count, Work work) {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back(work, i);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    vqreg::Store store = open();
};

}  // namespace

TEST_F(StoreThreads, UseOneKeyTogether) {
    constexpr int kTimes = 50;
    vqreg::Key key = store.create("K");
    inThreads(4, [&](int thread) {
        const std::string own = "V" + std::to_string(thread);
        for (int i = 0; i < kTimes; ++i) {
            key.set(own, i);
            EXPECT_EQ(key.get<int>(own), i);
            store.exclusively([&] { key.set("Count", key.get_or("Count", 0) + 1); });
        }
    });
    EXPECT_EQ(key.get<int>("Count"), 4 * kTimes);
}

// Keys come and go under the handles that belong to their paths.
TEST_F(StoreThreads, OpenThePathsOfKeysThatAreDeletedAndMade) {
    std::atomic<int> strange{0};
    inThreads(4, [&](int thread) {
        const std::string own = std::to_string(thread);
        for (int i = 0; i < 60; ++i) {
            std::error_code error;
            vqreg::Key key = store.create("Common/Key", error);
            strange += error && error != vqreg::errc::key_not_found &&
                       error != vqreg::errc::invalid_handle;
            key.set(own, i, error);
            strange += error && error != vqreg::errc::invalid_handle;
            key.erase(own, error);
            store.remove("Common/Key", error);
            strange += error && error != vqreg::errc::key_not_empty;
        }
    });
    EXPECT_EQ(strange, 0);
}

// A handle that is given up needs the lock that an update of another thread holds.
TEST_F(StoreThreads, OpenAndReleaseKeysWhileOthersUpdate) {
    store.create("Common/A");
    std::atomic<int> strange{0};
    inThreads(4, [&](int thread) {
        for (int i = 0; i < 500; ++i) {
            std::error_code error;
            if (thread % 2 == 0) {
                store.exclusively([&] { strange += !store.find("Common/A", error); });
            } else {
                // Each making is another key in the place of the one before.
                store.create("Common/" + std::to_string(thread), error);
                strange += error.value() != 0;
                strange += !store.remove("Common/" + std::to_string(thread), error);
            }
        }
    });
    EXPECT_EQ(strange, 0);
}

TEST_F(StoreThreads, CommitUpdatesOfOneValueWithoutMixingThem) {
    vqreg::Key key = store.create("K");
    inThreads(4, [&](int thread) {
        for (int i = 0; i < 30; ++i) {
            vqreg::Update update(store);
            update.set(key, "A", thread);
            update.set(key, "B", thread);
            update.commit();
            store.exclusively([&] { EXPECT_EQ(key.get<int>("A"), key.get<int>("B")); });
        }
    });
}
