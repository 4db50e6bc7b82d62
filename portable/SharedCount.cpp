// Where pointers have 64 bits, glibc's semaphore begins with two words of 32: the count, which is the
// futex, and the number of those who wait, which posting looks at. Elsewhere the words are others, and
// the semaphore is used as it is.
#include "portable/SharedCount.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdint>

#include "portable/SemaphoreWait.h"

namespace VQRegLib {

namespace {

#if defined(__GLIBC__)
constexpr bool kKnowsTheWords = sizeof(void*) == 8 && std::endian::native == std::endian::little;
#else
constexpr bool kKnowsTheWords = false;
#endif

struct CWords {
    std::uint32_t count;
    std::uint32_t waiting;
};

// Adds to a word and wakes those who wait for another one. 0 or an errno.
[[nodiscard]] int add(std::uint32_t* word, int number, std::uint32_t* woken, int atMost) {
    const int operation = FUTEX_OP(FUTEX_OP_ADD, number & 0xfff, FUTEX_OP_CMP_EQ, 0);
    const long result = ::syscall(SYS_futex, woken, FUTEX_WAKE_OP, atMost, 0L, word, operation);
    return result < 0 ? errno : 0;
}

// 0 when it may have become another number than 0.
[[nodiscard]] int waitWhileZero(std::uint32_t* word, unsigned long milliseconds) {
    const timespec limit{static_cast<time_t>(milliseconds / 1000),
                         static_cast<long>(milliseconds % 1000 * 1'000'000)};
    return ::syscall(SYS_futex, word, FUTEX_WAIT, 0, &limit, nullptr, 0) < 0 ? errno : 0;
}

bool read(std::uint32_t* word, std::uint32_t& value) {
    const iovec here{&value, sizeof value};
    const iovec there{word, sizeof value};
    return ::process_vm_readv(::getpid(), &here, 1, &there, 1, 0) ==
           static_cast<ssize_t>(sizeof value);
}

std::uint64_t now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1'000'000;
}

// Another process of the same number, in another container, may have been faster, or somebody may have
// woken this one for nothing: what was taken too much is given back.
CSharedCount::eOutcome take(CWords& words) {
    std::uint32_t count = 0;
    if (add(&words.count, -1, &words.count, 0) != 0 || !read(&words.count, count)) {
        return CSharedCount::eLost;
    }
    if (count <= INT32_MAX) {
        return CSharedCount::eTaken;
    }
    return add(&words.count, 1, &words.count, 0) == 0 ? CSharedCount::eTimeout
                                                      : CSharedCount::eLost;
}

CSharedCount::eOutcome waitAndTake(CWords& words, unsigned long milliseconds) {
    const std::uint64_t end = now() + milliseconds;
    for (;;) {
        const std::uint64_t before = now();
        const std::uint64_t left = before < end ? end - before : 0;
        const int error = waitWhileZero(&words.count, static_cast<unsigned long>(left));
        if (error == ETIMEDOUT) {
            return CSharedCount::eTimeout;
        }
        if (error != 0 && error != EAGAIN && error != EINTR) {
            return CSharedCount::eLost;
        }
        if (error != EINTR) {
            const CSharedCount::eOutcome taken = take(words);
            if (taken != CSharedCount::eTimeout) {
                return taken;
            }
        }
        if (now() >= end) {
            return CSharedCount::eTimeout;
        }
    }
}

}  // namespace

bool CSharedCount::post() const {
    if constexpr (kKnowsTheWords) {
        auto* const words = reinterpret_cast<CWords*>(m_semaphore);
        return add(&words->count, 1, &words->count, 1) == 0;
    } else {
        return sem_post(m_semaphore) == 0;
    }
}

bool CSharedCount::announceWaiting() const {
    if constexpr (kKnowsTheWords) {
        auto* const words = reinterpret_cast<CWords*>(m_semaphore);
        return add(&words->waiting, 1, &words->count, 0) == 0;
    } else {
        return true;
    }
}

CSharedCount::eOutcome CSharedCount::wait(unsigned long milliseconds) const {
    if constexpr (kKnowsTheWords) {
        return waitAndTake(*reinterpret_cast<CWords*>(m_semaphore), milliseconds);
    } else {
        return waitSemaphore(m_semaphore, milliseconds, nullptr) ? eTaken : eTimeout;
    }
}

}  // namespace VQRegLib
