#include "memory/Allocations.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace vqtorture {

namespace {

std::atomic<bool> g_isShort{false};
std::atomic<long> g_left{0};
std::atomic<long> g_refused{0};
std::atomic<long> g_live{0};
std::atomic<bool> g_isLasting{false};
std::atomic<Whose> g_whose{Whose::eEverybodys};
std::atomic<std::uint32_t> g_oneIn{0};
std::atomic<std::uint64_t> g_random{1};

// In the thread's own block from the beginning: a place that had to be made would be a request.
[[gnu::tls_model("initial-exec")]] thread_local bool t_isCaller = false;
[[gnu::tls_model("initial-exec")]] thread_local int t_plenty = 0;

bool isConcerned() {
    const Whose whose = g_whose.load();
    return t_plenty == 0 &&
           (whose == Whose::eEverybodys || (whose == Whose::eCallers) == t_isCaller);
}

bool isRefusedAtRandom() {
    const std::uint32_t oneIn = g_oneIn.load();
    if (oneIn == 0) {
        return false;
    }
    std::uint64_t number = g_random.fetch_add(0x9E3779B97F4A7C15u);
    number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9u;
    number = (number ^ (number >> 27)) * 0x94D049BB133111EBu;
    return (number ^ (number >> 31)) % oneIn == 0;
}

bool isRefused() {
    if (!g_isShort.load() || !isConcerned()) {
        return false;
    }
    const bool isNow = g_oneIn.load() != 0 ? isRefusedAtRandom() : g_left.fetch_sub(1) <= 0;
    if (!isNow) {
        return false;
    }
    if (!g_isLasting.load()) {
        g_isShort.store(false);
    }
    ++g_refused;
    errno = ENOMEM;
    return true;
}

}  // namespace

Shortage::Shortage(long succeeding, bool isLasting, Whose whose) : m_succeeding(succeeding) {
    t_isCaller = true;
    g_refused.store(0);
    g_left.store(succeeding);
    g_isLasting.store(isLasting);
    g_whose.store(whose);
    g_isShort.store(true);
}

long Shortage::end() {
    g_isShort.store(false);
    t_isCaller = false;
    return g_refused.load();
}

long Shortage::granted() const {
    return m_succeeding - std::max(g_left.load(), 0l);
}

Plenty::Plenty() {
    ++t_plenty;
}

Plenty::~Plenty() {
    --t_plenty;
}

long refuseAtRandom(std::uint32_t oneIn, std::uint64_t seed) {
    if (seed != 0) {
        g_random.store(seed);
    }
    g_oneIn.store(oneIn);
    g_isLasting.store(true);
    g_whose.store(Whose::eEverybodys);
    g_isShort.store(oneIn != 0);
    return g_refused.exchange(0);
}

long liveBlocks() {
    return g_live.load();
}

}  // namespace vqtorture

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the C library and the sanitizer give them
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
[[gnu::weak]] void* __interceptor_malloc(std::size_t size);
[[gnu::weak]] void* __interceptor_calloc(std::size_t count, std::size_t size);
[[gnu::weak]] void* __interceptor_realloc(void* memory, std::size_t size);
[[gnu::weak]] void* __interceptor_memalign(std::size_t alignment, std::size_t size);
[[gnu::weak]] void __interceptor_free(void* memory);
}

namespace {

using vqtorture::isRefused;

void* counted(void* memory) {
    vqtorture::g_live += memory && vqtorture::t_plenty == 0 ? 1 : 0;
    return memory;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
    return isRefused()            ? nullptr
           : __interceptor_malloc ? counted(__interceptor_malloc(size))
                                  : counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return isRefused()            ? nullptr
           : __interceptor_calloc ? counted(__interceptor_calloc(count, size))
                                  : counted(__libc_calloc(count, size));
}

void free(void* memory) noexcept {
    vqtorture::g_live -= memory && vqtorture::t_plenty == 0 ? 1 : 0;
    if (__interceptor_free) {
        __interceptor_free(memory);
    } else {
        __libc_free(memory);
    }
}

void* realloc(void* memory, std::size_t size) noexcept {
    if (!memory) {
        return malloc(size);
    }
    if (size == 0) {
        free(memory);
        return nullptr;
    }
    return isRefused()             ? nullptr
           : __interceptor_realloc ? __interceptor_realloc(memory, size)
                                   : __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return isRefused()              ? nullptr
           : __interceptor_memalign ? counted(__interceptor_memalign(alignment, size))
                                    : counted(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
    void* const made = memalign(alignment, size);
    if (!made) {
        return ENOMEM;
    }
    *memory = made;
    return 0;
}
}
// NOLINTEND(bugprone-reserved-identifier)

// These would otherwise be the sanitizer's own. Not inlined: the compiler would take the pair of new and
// free for a mistake.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const memory = std::malloc(size ? size : 1);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}

[[gnu::noinline]] void* operator new[](std::size_t size) {
    return ::operator new(size);
}

[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size ? size : 1);
}

[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size ? size : 1);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
