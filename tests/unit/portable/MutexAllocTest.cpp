// No memory to note that a thread which takes the lock has to give it up at its end. In an executable of
// its own, because it replaces what notes that.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "portable/Mutex.h"
#include "support/FailingAllocation.h"
#include "support/TempStore.h"

using namespace VQRegLib;

namespace {

bool g_isShort = false;
std::string g_replacedObject;  // is removed whenever somebody has waited for its lock
bool g_hasWaited = false;
int g_destructors = 0;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
int __real_pthread_setspecific(pthread_key_t key, const void* value);
int __wrap_pthread_setspecific(pthread_key_t key, const void* value);
int __real_flock(int fd, int operation);
int __wrap_flock(int fd, int operation);
int __real___cxa_thread_atexit(void (*destructor)(void*), void* object, void* library);
int __wrap___cxa_thread_atexit(void (*destructor)(void*), void* object, void* library);

int __wrap_pthread_setspecific(pthread_key_t key, const void* value) {
    return g_isShort ? ENOMEM : __real_pthread_setspecific(key, value);
}
int __wrap_flock(int fd, int operation) {
    g_hasWaited = !g_replacedObject.empty() && !g_hasWaited;
    if (g_hasWaited) {
        ::unlink(g_replacedObject.c_str());
        errno = EWOULDBLOCK;
        return -1;
    }
    return __real_flock(fd, operation);
}
int __wrap___cxa_thread_atexit(void (*destructor)(void*), void* object, void* library) {
    ++g_destructors;
    return __real___cxa_thread_atexit(destructor, object, library);
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST(MutexShortage, WhatCannotBeNotedForTheEndOfTheThreadIsNotTaken) {
    const vqtest::TempStore file;
    CPMutex mutex(1, 0, CSharedPath(file.path().c_str()), 1, 1);
    std::thread([&] {
        g_isShort = true;
        EXPECT_EQ(mutex.wait(CPMutex::kInfinite, nullptr), CPMutex::eFailed);
        EXPECT_EQ(mutex.error(), ENOMEM);
        EXPECT_FALSE(mutex.isHeldHere());
        g_isShort = false;
        EXPECT_EQ(mutex.wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    }).join();
    EXPECT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned) << "it went with its thread";
    EXPECT_EQ(g_destructors, 0) << "each may be the end of a process without memory";
}

TEST(MutexShortage, AnObjectThatIsReplacedAgainAndAgainIsGivenUp) {
    const vqtest::TempStore file;
    const CSharedPath path(file.path().c_str());
    CPMutex mutex(1, 0, path, 1, 1);
    g_replacedObject = objectPath(kLockKind, path);
    EXPECT_EQ(mutex.wait(CPMutex::kInfinite, nullptr), CPMutex::eFailed);
    EXPECT_EQ(mutex.error(), EAGAIN);
    EXPECT_FALSE(mutex.isHeldHere());
    g_replacedObject.clear();
    EXPECT_EQ(mutex.wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_TRUE(mutex.isStillHeld());
}

TEST(MutexShortage, WhatIsMadeForAMutexThatCannotBeMadeIsGivenBack) {
    const vqtest::TempStore file;
    const CSharedPath path(file.path().c_str());
    CPMutex::registerForkHandlers();  // with what is made once for all
    bool hasFailed = true;
    for (long n = 0; hasFailed; ++n) {
        const long before = vqtest::allocatedBlocks();
        vqtest::FailingAllocation allocation(n);
        try {
            const CPMutex mutex(1, 0, path, 1, 1);
            hasFailed = allocation.hasFailed();
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(vqtest::allocatedBlocks(), before) << "allocation " << n;
            hasFailed = allocation.hasFailed();
        }
    }
}
