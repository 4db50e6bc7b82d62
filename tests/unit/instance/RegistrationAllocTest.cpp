// Registering a handler while one allocation after the other fails, on whatever thread. In an
// executable of its own, because it replaces the allocation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include "support/ForkedChild.h"
#include "support/TraceLog.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::ForkedChild;
using vqtest::Handler;
using vqtest::TraceLog;

namespace {

// Counted down by each allocation; the one that finds 1 fails.
std::atomic<int> allocationsLeft{0};

bool isRefused() {
    int left = allocationsLeft;
    while (left > 0 && !allocationsLeft.compare_exchange_weak(left, left - 1)) {
    }
    return left == 1;
}

constexpr int kNoneFailed = 100;
constexpr int kThrew = 101;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
char* __real_strdup(const char* text);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* memory, std::size_t size);
char* __wrap_strdup(const char* text);

void* __wrap_malloc(std::size_t size) {
    return isRefused() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return isRefused() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, std::size_t size) {
    return isRefused() ? nullptr : __real_realloc(memory, size);
}
char* __wrap_strdup(const char* text) {
    return isRefused() ? nullptr : __real_strdup(text);
}
}
// NOLINTEND(bugprone-reserved-identifier)

// Not inlined: the compiler would take the pair of new and free for a mistake.
__attribute__((noinline)) void* operator new(std::size_t size) {
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
__attribute__((noinline)) void operator delete(void* memory) noexcept {
    std::free(memory);
}
__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

// In a process of its own: registers while the nth allocation fails, and once more with memory.
int registerTwice(const std::string& path, int n) {
    ::alarm(60);
    const auto session = vqtest::openSession(path);
    Handler handler;
    Handler second;
    bool hasThrown = false;
    allocationsLeft = n;
    try {
        session->SetRegistryChangeHandler(&handler);
    } catch (const VQException& exception) {
        hasThrown = exception.m_lCode == REGLIB_E_FAIL;
        if (!hasThrown) {
            return 1;
        }
    }
    const bool isExhausted = vqtest::waitUntil([] { return allocationsLeft == 0; },
                                               std::chrono::milliseconds(hasThrown ? 0 : 100));
    allocationsLeft = 0;
    const bool hadWatcher = vqtest::countThreads("FileWatch") == 1;
    session->SetRegistryChangeHandler(&second);
    if (vqtest::countThreads("RegChgNotif") != 1 || !vqtest::hasSemaphore()) {
        return 2;
    }
    // A watcher that could not start its thread keeps its store's handlers uncalled.
    if (hasThrown || hadWatcher) {
        if (!vqtest::waitWatchers(1)) {
            return 3;
        }
        vqtest::moveFileTime(path);
        session->SendRegistryChangeNotification();
        if (!second.waitCalls(1) || (hasThrown ? handler.begun() != 0 : !handler.waitCalls(1))) {
            return 4;
        }
    }
    session->ClrRegistryChangeHandler(&handler);
    session->ClrRegistryChangeHandler(&second);
    return !isExhausted ? kNoneFailed : hasThrown ? kThrew : 0;
}

}  // namespace

TEST(RegistrationShortage, EndsNoProcessWhicheverAllocationFails) {
    const TraceLog log(1);
    const vqtest::TempStore file;
    file.write("");
    int threw = 0;
    int status = 0;
    int n = 0;
    while (status != kNoneFailed && n < 200) {
        ++n;
        ForkedChild child([&] { return registerTwice(file.path(), n); });
        status = child.wait();
        threw += status == kThrew ? 1 : 0;
        EXPECT_THAT(status, testing::AnyOf(0, kThrew, kNoneFailed)) << "allocation " << n;
        std::filesystem::remove(vqtest::semaphoreFile(child.pid()));
    }
    EXPECT_EQ(status, kNoneFailed);
    EXPECT_GT(n, 10);
    EXPECT_GT(threw, 5);
    EXPECT_GE(log.texts().size(), 5u) << "the threads told of it";
}
