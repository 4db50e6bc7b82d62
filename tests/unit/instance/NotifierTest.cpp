// The thread on which a process hears of other processes' notifications.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "RegLib/instance/Directory.h"
#include "RegLib/instance/Notifier.h"
#include "support/ForkedChild.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::countThreads;
using vqtest::Handler;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

class Notifier : public vqtest::WatchedStore {
protected:
    static CRegLibImplDirectory& directory() { return *get_reglibImplDirectory(); }
};

}  // namespace

TEST_F(Notifier, IsThereWithItsSemaphoreWhenTheStartReturns) {
    EXPECT_EQ(countThreads("RegChgNotif"), 0);
    directory().startRegistryChangeNotifierThread();
    EXPECT_TRUE(vqtest::hasSemaphore());
    EXPECT_EQ(countThreads("RegChgNotif"), 1);
    directory().startRegistryChangeNotifierThread();
    EXPECT_EQ(countThreads("RegChgNotif"), 1);
}

TEST_F(Notifier, IsStartedOnceByManyThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { directory().startRegistryChangeNotifierThread(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(countThreads("RegChgNotif"), 1);
}

TEST_F(Notifier, KeepsItsSemaphoreWhenItIsStopped) {
    Handler handler;
    watch(handler);
    directory().StopRegistryChangeNotifierThread();
    EXPECT_TRUE(waitUntil([] { return countThreads("RegChgNotif") == 0; }));
    EXPECT_TRUE(vqtest::hasSemaphore());
    EXPECT_TRUE(waitWatchers(1)) << "the watchers stay";
}

TEST_F(Notifier, MayBeStoppedBeforeItWasStarted) {
    directory().StopRegistryChangeNotifierThread();
    EXPECT_EQ(countThreads("RegChgNotif"), 0);
    EXPECT_FALSE(vqtest::hasSemaphore());
}

TEST_F(Notifier, OfAParentIsNotStoppedByAForkedChild) {
    Handler handler;
    watch(handler);
    vqtest::ForkedChild child([] {
        ::alarm(30);
        directory().StopRegistryChangeNotifierThread();
        return 0;
    });
    EXPECT_EQ(child.wait(), 0);
    announceChange();
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(Notifier, OutlivesTheLastStore) {
    Handler handler;
    watch(handler);
    session.reset();
    EXPECT_EQ(countThreads("RegChgNotif"), 1);
    EXPECT_TRUE(vqtest::hasSemaphore());
    releaseNotificationSemaphores();  // there is no watcher to wake
    session = vqtest::openSession(file.path());
    watch(handler);
    announceChange();
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(Notifier, WakesTheWatchersOfAllStores) {
    vqtest::TempStore otherFile;
    const auto other = vqtest::openSession(otherFile.path());
    Handler handler;
    Handler ofOther;
    other->SetRegistryChangeHandler(&ofOther);
    watch(handler, 2);
    vqtest::moveFileTime(otherFile.path());
    vqtest::moveFileTime(file.path());
    releaseNotificationSemaphores();
    EXPECT_TRUE(handler.waitCalls(1));
    EXPECT_TRUE(ofOther.waitCalls(1));
}
