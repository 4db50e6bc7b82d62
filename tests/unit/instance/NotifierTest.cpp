// The thread on which a process hears of other processes' notifications.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "RegLib/instance/Directory.h"
#include "RegLib/instance/Notifier.h"
#include "RegLib/text/NotificationName.h"
#include "portable/Mutex.h"
#include "portable/NamedObjects.h"
#include "portable/Semaphore.h"
#include "support/ForkedChild.h"
#include "support/Threads.h"
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

// Its semaphore may be replaced meanwhile, by whoever has the directory's lock.
TEST_F(Notifier, IsNotStoppedWhileTheDirectoryIsInUse) {
    const vqtest::TempStore other;
    CPMutex lock(1, 0, other.path(), 1, 1);
    ASSERT_EQ(lock.wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    std::unique_ptr<CRegLib> made;
    {
        const vqtest::CallElsewhere making([&] { made = vqtest::openSession(other.path()); });
        EXPECT_TRUE(making.waits()) << "for the lock of the file, which it has to make";
        const vqtest::CallElsewhere stop([] { directory().StopRegistryChangeNotifierThread(); });
        EXPECT_TRUE(stop.waits());
        lock.release();
    }
    EXPECT_NE(made->RootKey(), nullptr);
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
    ofOther.watch(other);
    watch(handler, 2);
    vqtest::moveFileTime(otherFile.path());
    vqtest::moveFileTime(file.path());
    releaseNotificationSemaphores();
    EXPECT_TRUE(handler.waitCalls(1));
    EXPECT_TRUE(ofOther.waitCalls(1));
}

TEST(Notification, IsSentByItsOwnCallOnly) {
    vqtest::TempStore file;
    CRegLib session(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CPSemaphore own(1, 0, 0x7fffffff, notificationSemaphoreName(::getpid()), 1);
    ASSERT_TRUE(own.own());
    const unsigned char bytes[] = {1, 2};
    CRegKey key;
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "k", key, 1), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(key, "n", 1ul), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(key, "t", "x"), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(key, "b", bytes, 2), REGLIB_OK);
    for (const char* const name : {"n", "t", "b"}) {
        ASSERT_EQ(session.VQRegDeleteValue(key, name), REGLIB_OK);
    }
    ASSERT_EQ(session.VQRegDeleteKey(*session.RootKey(), "k"), REGLIB_OK);
    EXPECT_FALSE(own.wait(0, nullptr)) << "changes notify nobody";
    session.SendRegistryChangeNotification();
    EXPECT_TRUE(own.wait(0, nullptr));
    EXPECT_FALSE(own.wait(0, nullptr));
}

TEST(Notification, ReachesThoseWhoCouldNotBeFoundTheLastTime) {
    CPSemaphore own(1, 0, 0x7fffffff, notificationSemaphoreName(::getpid()), 1);
    ASSERT_TRUE(own.own());
    // From now on the directory's time alone would say that nobody has come or gone.
    ASSERT_TRUE(waitUntil([] { return CNamesMark::now().isUnchangedSince(CNamesMark::now()); }));
    rlimit usual{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit none{0, usual.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    releaseNotificationSemaphores();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
    while (own.wait(0, nullptr)) {
        // Another test of this process has let it be known.
    }
    releaseNotificationSemaphores();
    EXPECT_TRUE(own.wait(0, nullptr));
}

TEST(Notification, ReachesThoseItKnowsWithoutADescriptor) {
    CPSemaphore own(1, 0, 0x7fffffff, notificationSemaphoreName(::getpid()), 1);
    ASSERT_TRUE(own.own());
    releaseNotificationSemaphores();
    ASSERT_TRUE(own.wait(0, nullptr));
    // Those who are there have to be looked for again.
    const vqtest::ForkedChild another([] {
        return CPSemaphore(1, 0, 0x7fffffff, notificationSemaphoreName(::getpid()), 1).own() ? 0
                                                                                             : 1;
    });
    rlimit usual{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit none{0, usual.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    for (int round = 0; round < 2; ++round) {
        releaseNotificationSemaphores();
        EXPECT_TRUE(own.wait(0, nullptr)) << round;
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
}

// A name that nobody can open does not keep those of the dead.
TEST(Notification, TakesAwayWhatTheDeadLeftBesideAnythingElse) {
    const std::string noSemaphore = vqtest::semaphoreFile(999'999'999);
    ASSERT_EQ(::mkdir(noSemaphore.c_str(), 0700), 0);
    vqtest::ForkedChild killed([] {
        CPSemaphore own(1, 0, 0x7fffffff, notificationSemaphoreName(::getpid()), 1);
        return own.own() ? ::raise(SIGKILL) : 1;
    });
    EXPECT_EQ(killed.wait(), -SIGKILL);
    EXPECT_TRUE(vqtest::hasSemaphore(killed.pid()));
    EXPECT_TRUE(waitUntil([&] {
        releaseNotificationSemaphores();
        return !vqtest::hasSemaphore(killed.pid());
    }));
    EXPECT_EQ(::rmdir(noSemaphore.c_str()), 0);
}
