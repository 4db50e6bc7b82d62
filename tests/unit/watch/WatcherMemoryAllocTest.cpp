// Registering handlers when memory is short. In an executable of its own, because it replaces the
// allocation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "RegLib/watch/Watcher.h"
#include "portable/Event.h"
#include "portable/Semaphore.h"
#include "support/TraceLog.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using testing::ElementsAre;
using vqtest::Handler;
using vqtest::TraceLog;

namespace {

std::atomic<std::size_t> missingSize{0};  // objects of that size cannot be had
std::atomic<bool> onNotifierOnly{false};

bool isMissing(std::size_t size) {
    char name[16] = "";
    return size == missingSize &&
           (!onNotifierOnly || (pthread_getname_np(pthread_self(), name, sizeof name) == 0 &&
                                std::strcmp(name, "RegChgNotif") == 0));
}

void* allocate(std::size_t size) {
    void* const address = isMissing(size) ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (address == nullptr) {
        throw std::bad_alloc();
    }
    return address;
}

class WatcherMemory : public testing::Test {
protected:
    void SetUp() override {
        file.write("");
        session = vqtest::openSession(file.path());
        vqtest::moveFileTime(file.path());
    }

    // Registers a handler while objects of that size cannot be had.
    void expectFailure(std::size_t size, const std::string& text = "RegLib.714") {
        Handler handler;
        missingSize = size;
        try {
            session->SetRegistryChangeHandler(&handler);
            missingSize = 0;
            ADD_FAILURE() << "no exception";
        } catch (const VQException& exception) {
            missingSize = 0;
            EXPECT_EQ(static_cast<int>(exception.m_lCode), REGLIB_E_FAIL);
            EXPECT_EQ(std::string(exception.m_szText), text);
        }
        EXPECT_EQ(vqtest::countThreads("FileWatch"), 0);
    }

    // The watcher that could not be made was not kept, and nothing is locked.
    void expectRecovery() {
        Handler handler;
        session->ClrRegistryChangeHandler(&handler);
        handler.watch(session);
        ASSERT_TRUE(vqtest::waitWatchers(1));
        vqtest::moveFileTime(file.path());
        session->SendRegistryChangeNotification();
        EXPECT_TRUE(handler.waitCalls(1));
    }

    TraceLog log{1};
    vqtest::TempStore file;
    std::unique_ptr<CRegLib> session;
};

}  // namespace

// Not inlined: the compiler would take the pair of new and free for a mistake.
__attribute__((noinline)) void* operator new(std::size_t size) {
    return allocate(size);
}
__attribute__((noinline)) void* operator new[](std::size_t size) {
    return allocate(size);
}
__attribute__((noinline)) void operator delete(void* address) noexcept {
    std::free(address);
}
__attribute__((noinline)) void operator delete[](void* address) noexcept {
    std::free(address);
}
__attribute__((noinline)) void operator delete(void* address, std::size_t) noexcept {
    std::free(address);
}
__attribute__((noinline)) void operator delete[](void* address, std::size_t) noexcept {
    std::free(address);
}

TEST_F(WatcherMemory, NoEventIsTracedAndThrown) {
    if (sizeof(void*) < 8) {
        GTEST_SKIP() << "here other things have the size of the event as well";
    }
    expectFailure(sizeof(CPEvent));
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace),
                ElementsAre("(Error) CRegWatcherThread::acquireRegWatcherThread (0x@), new CPEvent "
                            "failed"));
    expectRecovery();
}

TEST_F(WatcherMemory, NoWatcherIsThrownToo) {
    expectFailure(sizeof(CRegWatcherThread));
    expectRecovery();
}

TEST_F(WatcherMemory, NoSemaphoreIsTracedAndThrown) {
    onNotifierOnly = true;
    expectFailure(sizeof(CPSemaphore), "RegLib.2372");
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace),
                ElementsAre("(Error) CRegLibImpl::RegistryChangeNotifierThread (0x@), exception "
                            "0xC1250FA0, RegLib.2372"));
    EXPECT_EQ(vqtest::countThreads("RegChgNotif"), 0);
    expectRecovery();
}
