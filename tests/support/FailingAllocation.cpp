#include "support/FailingAllocation.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace vqtest {

namespace {

constexpr long kOff = -1;
long g_left = kOff;  // allocations that succeed before one fails
bool g_failed = false;
std::atomic<long> g_blocks{0};

bool failsNow() {
    if (g_left == kOff) {
        return false;
    }
    if (g_left > 0) {
        --g_left;
        return false;
    }
    g_left = kOff;
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

UnlimitedAllocation::UnlimitedAllocation() : m_left(std::exchange(g_left, kOff)) {}

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
