// Waiting. The word holds the owner's number and, in its lowest bit, whether anybody sleeps. A thread that
// finds it taken looks again some times, for most operations are shorter than falling asleep; then it sets
// the bit and sleeps on the word (futex) as long as that has not changed. Whoever leaves and finds the bit
// wakes one sleeper, which takes the word with the bit set, as it cannot know whether more of them sleep:
// one wake-up too many at the end of a crowd, and never one too few.
#include "portable/CritSec.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <bit>
#include <cerrno>

namespace VQRegLib {

namespace {

constexpr int kLooks = 100;  // most operations are over sooner than a thread falls asleep

// The half of the word that changes most, which is what a thread can sleep on.
std::uint32_t* lowHalf(std::atomic<std::uint64_t>& word) {
    static_assert(sizeof word == sizeof(std::uint64_t));
    auto* const halves = reinterpret_cast<std::uint32_t*>(&word);
    return halves + (std::endian::native == std::endian::little ? 0 : 1);
}

void sleepOn(std::atomic<std::uint64_t>& word, std::uint64_t value) {
    ::syscall(SYS_futex, lowHalf(word), FUTEX_WAIT_PRIVATE, static_cast<std::uint32_t>(value),
              nullptr, nullptr, 0);
}

}  // namespace

void CPCritSec::enterAgainOrWait() {
    if (isInside()) {
        ++m_depth;
        return;
    }
    waitAndTake();
    m_depth = 1;
}

// Whoever has slept takes the word with the mark set: it does not know whether others sleep too.
void CPCritSec::waitAndTake() {
    for (int look = 0; look < kLooks; ++look) {
        if (tryTake()) {
            return;
        }
    }
    const int error = errno;  // callers tell of one that they got before
    std::uint64_t word = m_word.load(std::memory_order_relaxed);
    for (;;) {
        if (word == 0) {
            if (m_word.compare_exchange_weak(word, ownWord() | kWaited, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                break;
            }
        } else if ((word & kWaited) != 0 ||
                   m_word.compare_exchange_weak(word, word | kWaited, std::memory_order_relaxed)) {
            sleepOn(m_word, word | kWaited);
            word = m_word.load(std::memory_order_relaxed);
        }
    }
    errno = error;
}

// The object may be gone by now, when another thread has entered, left and destroyed it: the word is
// only named to the kernel, which at worst wakes somebody who looks again.
void CPCritSec::wakeOne() {
    const int error = errno;
    ::syscall(SYS_futex, lowHalf(m_word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    errno = error;
}

}  // namespace VQRegLib
