// What a store does when it gets a handler, without the directory that starts the notifier.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/Handlers.h"
#include "support/StoreFixture.h"

using namespace vqtest;

namespace {

int g_starts = 0;

class StoreHandlers : public StoreTest {
protected:
    void SetUp() override { g_starts = 0; }

    Handler handler;  // first, for its store calls it
    std::unique_ptr<CRegLibImplFile> store = open();
};

}  // namespace

TEST_F(StoreHandlers, StartNobodyInAStoreThatIsNotListed) {
    store->SetRegistryChangeHandler(&handler);
    EXPECT_TRUE(waitWatchers(1));
    EXPECT_EQ(countThreads("RegChgNotif"), 0);
    EXPECT_FALSE(hasSemaphore());
}

TEST_F(StoreHandlers, StartTheNotifierBeforeTheWatcherEachTime) {
    store->m_startNotifier = [] {
        EXPECT_EQ(countThreads("FileWatch"), g_starts);
        ++g_starts;
    };
    store->SetRegistryChangeHandler(&handler);
    EXPECT_EQ(g_starts, 1);
    ASSERT_TRUE(waitWatchers(1));
    store->SetRegistryChangeHandler(&handler);
    EXPECT_EQ(g_starts, 2);
}

TEST_F(StoreHandlers, StartNothingForNoHandler) {
    store->m_startNotifier = [] { ++g_starts; };
    store->SetRegistryChangeHandler(nullptr);
    EXPECT_EQ(g_starts, 0);
    EXPECT_EQ(countThreads("FileWatch"), 0);
}

TEST_F(StoreHandlers, AreNotTakenWhereTheNotifierCannotStart) {
    store->m_startNotifier = [] { throw VQException(REGLIB_E_FAIL, "here", 1); };
    EXPECT_THROW(store->SetRegistryChangeHandler(&handler), VQException);
    EXPECT_FALSE(store->hasWatcher());
}

TEST_F(StoreHandlers, OfManyThreadsAtOnceHaveOneWatcher) {
    constexpr int kThreads = 8;
    for (int round = 0; round < 20; ++round) {
        const TempStore other;
        CRegLibImplFile fresh(other.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&] {
                ++ready;
                while (ready.load() < kThreads) {
                    std::this_thread::yield();
                }
                fresh.SetRegistryChangeHandler(&handler);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_TRUE(waitWatchers(1));
        fresh.DeleteRegWatcherThread();
        // The system shows a thread for a moment after its end.
        ASSERT_TRUE(waitUntil([] { return countThreads("FileWatch") == 0; }))
            << "in round " << round;
    }
}

TEST_F(StoreHandlers, AreNotTakenByAStoreThatIsBeingDestroyed) {
    store->SetRegistryChangeHandler(&handler);
    ASSERT_TRUE(waitWatchers(1));
    store->DeleteRegWatcherThread();
    store->SetRegistryChangeHandler(&handler);
    EXPECT_FALSE(store->hasWatcher());
    EXPECT_TRUE(waitUntil([] { return countThreads("FileWatch") == 0; }));
}
