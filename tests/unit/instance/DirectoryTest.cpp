// Which sessions of a process share a store, and for how long.
#include "RegLib/instance/Directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "RegLib/store/Store.h"
#include "VQRegLib.h"
#include "portable/Mutex.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/Threads.h"
#include "support/TraceLog.h"

using namespace VQRegLib;
using testing::ElementsAre;
using vqtest::CallElsewhere;
using vqtest::readFile;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

constexpr auto kSecondLocation = static_cast<CRegLib::LOCATION>(7);

CRegLibImpl* acquire(const char* name, const char* key,
                     CRegLib::LOCATION location = CRegLib::eLocationDefault) {
    return get_reglibImplDirectory()->acquireRegLibImpl(name, key, location, nullptr);
}

void release(CRegLibImpl* store) {
    get_reglibImplDirectory()->releaseRegLibImpl(store);
}

// The lines of the log that tell of stores of a file made and destroyed.
std::vector<std::string> lifeOf(const TraceLog& log, const std::string& path) {
    std::vector<std::string> lines = log.texts(TraceLog::Addresses::eReplace);
    std::erase_if(lines, [&](const std::string& line) {
        return line.find(path) == std::string::npos && line.find('~') == std::string::npos;
    });
    return lines;
}

// What a fork handler of the program finds that the library's have run before. Who does not hold a
// recursive mutex is refused to leave it.
bool g_isLookedAtFork = false;
bool g_isHeldAtFork = false;

// Takes it again without waiting, which would be against the order of locks.
void lookAtFork() {
    g_isHeldAtFork = g_isLookedAtFork && pthread_mutex_unlock(&g_mutexGlobals) == 0;
    while (g_isHeldAtFork && pthread_mutex_trylock(&g_mutexGlobals) != 0) {
        std::this_thread::yield();
    }
}

// Before the library has any handler: those of before a fork run in the opposite order.
[[maybe_unused]] const int g_registered = pthread_atfork(lookAtFork, nullptr, nullptr);

bool isCreationLockFree() {
    bool isFree = false;
    std::thread([&] {
        isFree = pthread_mutex_trylock(&g_mutexGlobals) == 0;
        if (isFree) {
            pthread_mutex_unlock(&g_mutexGlobals);
        }
    }).join();
    return isFree;
}

}  // namespace

TEST(Directory, TuplesAreTheTextsAsGiven) {
    const auto tuple = CRegLibImplDirectory::getTuple;
    EXPECT_EQ(tuple("a.cfg", "Velquist"), "FILE:a.cfg:Velquist");
    EXPECT_EQ(tuple("a.cfg", nullptr), "FILE:a.cfg:<DEFAULT>");
    EXPECT_EQ(tuple(nullptr, "Velquist/Logging"), "REG::Velquist/Logging");
    EXPECT_EQ(tuple(nullptr, nullptr), "REG::<DEFAULT>");
    EXPECT_EQ(tuple("", ""), "FILE::");
    EXPECT_EQ(tuple("/A//b/../C.cfg", "Site"), "FILE:/A//b/../C.cfg:Site");
}

TEST(Directory, IsMadeOnce) {
    EXPECT_EQ(g_preglibImplDirectory, nullptr);
    CRegLibImplDirectory* const directory = get_reglibImplDirectory();
    ASSERT_NE(directory, nullptr);
    EXPECT_EQ(g_preglibImplDirectory, directory);
    EXPECT_EQ(get_reglibImplDirectory(), directory);
}

TEST(Directory, ItsCreationLockIsRecursive) {
    ASSERT_EQ(pthread_mutex_lock(&g_mutexGlobals), 0);
    EXPECT_NE(get_reglibImplDirectory(), nullptr);
    EXPECT_EQ(pthread_mutex_trylock(&g_mutexGlobals), 0);
    pthread_mutex_unlock(&g_mutexGlobals);
    pthread_mutex_unlock(&g_mutexGlobals);
}

// Nobody makes a directory in the middle of a fork.
TEST(Directory, ItsCreationLockIsHeldWhileTheProcessForks) {
    ASSERT_NE(get_reglibImplDirectory(), nullptr);
    g_isLookedAtFork = true;
    vqtest::ForkedChild child([] { return isCreationLockFree() ? 0 : 1; });
    EXPECT_TRUE(g_isHeldAtFork);
    EXPECT_TRUE(isCreationLockFree());
    EXPECT_EQ(child.wait(), 0) << "it is not left in the child";
}

TEST(Directory, StoresAreSharedAndCounted) {
    const TempStore file;
    CRegLibImpl* const store = acquire(file.path().c_str(), "Site");
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(store->m_lRefCount, 1);
    EXPECT_EQ(store->m_strTuple, "FILE:" + file.path() + ":Site");
    EXPECT_EQ(acquire(file.path().c_str(), "Site"), store);
    EXPECT_EQ(store->m_lRefCount, 2);
    release(store);
    EXPECT_EQ(store->m_lRefCount, 1);
    EXPECT_EQ(acquire(file.path().c_str(), "Site"), store);
    EXPECT_EQ(store->m_lRefCount, 2);
    release(store);
    release(store);
}

TEST(Directory, TheLastReleaseDestroysTheStore) {
    const TraceLog log(4);
    const TempStore file;
    file.write("[Velquist]\n");
    CRegLibImpl* const held = acquire(nullptr, nullptr);
    CRegLibImpl* const store = acquire(file.path().c_str(), nullptr);
    acquire(file.path().c_str(), nullptr);
    const std::string made = "CRegLibImpl::CRegLibImpl (0x@) - " + file.path() + ", (null)";
    release(store);
    EXPECT_THAT(lifeOf(log, file.path()), ElementsAre(made));
    release(store);
    EXPECT_THAT(lifeOf(log, file.path()), ElementsAre(made, "CRegLibImpl::~CRegLibImpl (0x@)"));
    CRegLibImpl* const next = acquire(file.path().c_str(), nullptr);
    EXPECT_EQ(next->m_lRefCount, 1);
    EXPECT_THAT(lifeOf(log, file.path()),
                ElementsAre(made, "CRegLibImpl::~CRegLibImpl (0x@)", made));
    release(next);
    release(held);
}

TEST(Directory, TheLocationDoesNotTellStoresApart) {
    const TempStore file;
    CRegLibImpl* const store = acquire(file.path().c_str(), nullptr);
    EXPECT_EQ(acquire(file.path().c_str(), nullptr, kSecondLocation), store);
    EXPECT_EQ(file.read(), "[Velquist]\n");
    release(store);
    release(store);
}

TEST(Directory, RootKeysTellStoresApart) {
    const TempStore file;
    CRegLibImpl* const byDefault = acquire(file.path().c_str(), nullptr);
    CRegLibImpl* const byName = acquire(file.path().c_str(), "Velquist");
    CRegLibImpl* const byOtherCase = acquire(file.path().c_str(), "velquist");
    EXPECT_NE(byDefault, byName);
    EXPECT_NE(byName, byOtherCase);
    EXPECT_EQ(file.read(), "[Velquist]\n");
    for (CRegLibImpl* const store : {byDefault, byName, byOtherCase}) {
        EXPECT_EQ(store->m_lRefCount, 1);
        release(store);
    }
}

TEST(Directory, TheDefaultFileByNameIsAnotherStoreOnTheSameFile) {
    CRegLib byDefault(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    CRegLib byName("/etc/Velquist.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    ASSERT_NE(byDefault.RootKey(), nullptr);
    ASSERT_NE(byDefault.RootKey(), byName.RootKey());
    ASSERT_EQ(byDefault.VQRegSetValue(*byDefault.RootKey(), "A", 1ul), REGLIB_OK);
    ASSERT_EQ(byName.VQRegSetValue(*byName.RootKey(), "B", 2ul), REGLIB_OK);
    CRegLib::eDataType type = CRegLib::eNone;
    EXPECT_EQ(byName.VQRegQueryValueType(*byName.RootKey(), "A", type), REGLIB_OK);
    EXPECT_EQ(byDefault.VQRegQueryValueType(*byDefault.RootKey(), "B", type), REGLIB_OK);
    EXPECT_EQ(readFile("/etc/Velquist.cfg"),
              "[Velquist]\n\"A\"=dword:00000001\n\"B\"=dword:00000002\n"
              "[Velquist/Logging]\n\"RegLibLogging\"=dword:00000001\n");
}

TEST(Directory, AFailedConstructionLeavesNoEntry) {
    const TempStore file;
    file.write("nonsense\n");
    int result = -1;
    EXPECT_EQ(get_reglibImplDirectory()->acquireRegLibImpl(file.path().c_str(), nullptr,
                                                           CRegLib::eLocationDefault, &result),
              nullptr);
    EXPECT_EQ(result, 0);
    file.write("[Velquist]\n");
    CRegLibImpl* const store = acquire(file.path().c_str(), nullptr);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(store->m_lRefCount, 1);
    release(store);
}

TEST(Directory, AnAcquirerReceivesTheRecordedResult) {
    const TempStore file;
    CRegLibImpl* const store = acquire(file.path().c_str(), nullptr);
    store->m_nResult = 5;
    int result = -1;
    EXPECT_EQ(get_reglibImplDirectory()->acquireRegLibImpl(file.path().c_str(), nullptr,
                                                           CRegLib::eLocationDefault, &result),
              store);
    EXPECT_EQ(result, 5);
    release(store);
    release(store);
}

TEST(Directory, AStoreThatIsNotListedIsNotReleased) {
    const TempStore file;
    CRegLibImpl* const store = acquire(file.path().c_str(), nullptr);
    const std::string tuple = store->m_strTuple;
    store->m_strTuple = "other";
    release(store);
    EXPECT_EQ(store->m_lRefCount, 1);
    store->m_strTuple = tuple;
    release(store);
}

TEST(Directory, TheFirstSessionMayBeTheTracesOwn) {
    const TraceLog log(4);
    CRegLibImpl* const store = acquire(nullptr, "Velquist/Logging");
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(store->m_lRefCount, 1);
    EXPECT_EQ(store->m_strTuple, "REG::Velquist/Logging");
    EXPECT_EQ(acquire(nullptr, "Velquist/Logging"), store);
    EXPECT_EQ(store->m_lRefCount, 2);
    // The trace's own store has gone before; this one is still there.
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace),
                ElementsAre("CRegLibImpl::CRegLibImpl (0x@) - (null), Velquist/Logging"));
    release(store);
    release(store);
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace),
                ElementsAre("CRegLibImpl::CRegLibImpl (0x@) - (null), Velquist/Logging",
                            "CRegLibImpl::~CRegLibImpl (0x@)"));
}

TEST(Directory, WhileAStoreIsMadeOtherThreadsWait) {
    const TempStore file;
    const TempStore other;
    CRegLibImpl* const held = acquire(other.path().c_str(), nullptr);  // the trace is there
    CPMutex lock(1, 0, file.path(), 1, 1);
    ASSERT_EQ(lock.wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    CRegLibImpl* first = nullptr;
    CRegLibImpl* second = nullptr;
    CRegLibImpl* third = nullptr;
    {
        const CallElsewhere making([&] { first = acquire(file.path().c_str(), nullptr); });
        EXPECT_TRUE(making.waits()) << "for the lock of the file, which it has to make";
        const CallElsewhere same([&] { second = acquire(file.path().c_str(), nullptr); });
        const CallElsewhere another([&] { third = acquire(other.path().c_str(), nullptr); });
        EXPECT_TRUE(same.waits());
        EXPECT_TRUE(another.waits());
        lock.release();
    }
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(second, first);
    EXPECT_EQ(third, held);
    for (CRegLibImpl* const store : {first, second, third, held}) {
        release(store);
    }
}

TEST(Directory, ManyThreadsGetOneStore) {
    const TempStore file;
    constexpr int kThreads = 8;
    std::vector<CRegLibImpl*> found(kThreads);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (CRegLibImpl*& mine : found) {
        threads.emplace_back([&] {
            for (++ready; ready < kThreads;) {
                std::this_thread::yield();
            }
            mine = acquire(file.path().c_str(), nullptr);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_NE(found[0], nullptr);
    EXPECT_THAT(found, testing::Each(found[0]));
    EXPECT_EQ(found[0]->m_lRefCount, kThreads);
    for (CRegLibImpl* const store : found) {
        release(store);
    }
}
