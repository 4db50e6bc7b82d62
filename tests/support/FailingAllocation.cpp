#include "support/FailingAllocation.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace vqtest {

namespace {

constexpr long kOff = -1;
std::atomic<long> g_left{kOff};  // allocations that succeed before one fails, of whatever thread
std::atomic<bool> g_failed{false};
std::atomic<long> g_blocks{0};

bool failsNow() {
    long left = g_left;
    while (left != kOff && !g_left.compare_exchange_weak(left, left > 0 ? left - 1 : kOff)) {
    }
    if (left != 0) {
        return false;
    }
    g_failed = true;
    return true;
}

void* allocate(std::size_t size) {
    void* const memory = failsNow() ? nullptr : std::malloc(size ? size : 1);
    g_blocks += memory ? 1 : 0;
    return memory;
}

void giveBack(void* memory) {
    g_blocks -= memory ? 1 : 0;
    std::free(memory);
}

void* allocateOrThrow(std::size_t size) {
    if (void* const memory = allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

FailingAllocation::FailingAllocation(long succeeding) {
    g_failed = false;
    g_left = succeeding;
}

FailingAllocation::~FailingAllocation() {
    g_left = kOff;
}

bool FailingAllocation::hasFailed() {
    g_left = kOff;
    return g_failed;
}

long allocatedBlocks() {
    return g_blocks;
}

UnlimitedAllocation::UnlimitedAllocation() : m_left(g_left.exchange(kOff)) {}

UnlimitedAllocation::~UnlimitedAllocation() {
    g_left = m_left;
}

}  // namespace vqtest

using vqtest::allocate;
using vqtest::allocateOrThrow;
using vqtest::giveBack;

// Not inlined: the compiler would take malloc and operator delete, or new and free, for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}

[[gnu::noinline]] void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}

[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}

[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    giveBack(memory);
}

[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    giveBack(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    giveBack(memory);
}

[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
    giveBack(memory);
}

[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t&) noexcept {
    giveBack(memory);
}

[[gnu::noinline]] void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    giveBack(memory);
}
