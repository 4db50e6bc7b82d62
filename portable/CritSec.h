// A critical section of one process that its holder may enter again.
#ifndef PORTABLE_CRITSEC_H
#define PORTABLE_CRITSEC_H

#include <sys/single_threaded.h>

#include <atomic>
#include <cstdint>

#include "portable/ThreadAnnotations.h"
#include "portable/ThreadNumber.h"

namespace VQRegLib {

// One word says who is inside and whether anybody waits. The holder is known by the number of its
// thread, which a forked child's only thread has from the one that forked: it stays inside there. What
// another thread of the parent held stays held in the child.
class CAPABILITY("critical section") CPCritSec {
public:
    // `name` helps in a debugger and must live as long as the object. `flag` is 1: re-entrant, the
    // only kind there is.
    CPCritSec(const char* name, int flag) : m_name(name), m_flag(flag) {}

    // An exception may have left the calling thread inside; it is then no longer.
    ~CPCritSec() = default;
    CPCritSec(const CPCritSec&) = delete;
    CPCritSec& operator=(const CPCritSec&) = delete;

    // `location` marks the place in the source that enters; the last one is kept for a debugger.
    void enter(int location) ACQUIRE() {
        if (tryTake()) [[likely]] {
            m_depth = 1;
        } else {
            enterAgainOrWait();
        }
        m_location = location;
    }

    // Enters if nobody is inside and the thread is no new one, which needs neither waiting nor a call.
    [[nodiscard]] bool tryEnterAtOnce(int location) TRY_ACQUIRE(true) {
        const std::uint64_t number = knownThreadNumber();
        if (number == 0 || !tryTake(number)) {
            return false;
        }
        m_depth = 1;
        m_location = location;
        return true;
    }

    // By a thread that is not inside: changes nothing.
    void leave(int location) RELEASE() {
        if (isInside()) {
            leaveEntered(location);
        }
    }

    // By a thread that has entered, as it knows. In a child of fork that has forgotten it meanwhile nobody
    // is inside, and nobody is afterwards.
    void leaveEntered(int location) RELEASE() {
        m_location = -location;  // negative: left from there
        if (--m_depth == 0) {
            release();
        }
    }

    // Enters if that needs no waiting.
    [[nodiscard]] bool tryEnter(int location) TRY_ACQUIRE(true) {
        if (tryTake()) {
            m_depth = 1;
        } else if (isInside()) {
            ++m_depth;
        } else {
            return false;
        }
        m_location = location;
        return true;
    }

    // In a child of fork that has inherited it entered: nobody is inside any more.
    void forgetInherited() {
        m_depth = 0;
        m_word.store(0, std::memory_order_relaxed);
    }

private:
    static constexpr std::uint64_t kWaited = 1;  // the bit below the holder's number

    static std::uint64_t wordOf(std::uint64_t number) { return number << 1; }
    static std::uint64_t ownWord() { return wordOf(currentThreadNumber()); }

    bool isInside() const {
        return (m_word.load(std::memory_order_relaxed) & ~kWaited) == ownWord();
    }

    // While the process has one thread it needs no exchange, which costs ten times a store. A signal
    // handler in between leaves what it entered.
    bool tryTake() { return tryTake(currentThreadNumber()); }
    bool tryTake(std::uint64_t number) {
        std::uint64_t nobody = m_word.load(std::memory_order_relaxed);
        if (nobody != 0) {
            return false;
        }
        if (__libc_single_threaded) {
            m_word.store(wordOf(number), std::memory_order_relaxed);
            return true;
        }
        return m_word.compare_exchange_strong(nobody, wordOf(number), std::memory_order_acquire,
                                              std::memory_order_relaxed);
    }

    void release() {
        if (__libc_single_threaded) {
            m_word.store(0, std::memory_order_relaxed);
        } else if (m_word.exchange(0, std::memory_order_release) & kWaited) {
            wakeOne();
        }
    }

    void enterAgainOrWait();
    void waitAndTake();
    void wakeOne();

    std::atomic<std::uint64_t> m_word{0};  // 0: nobody is inside
    [[maybe_unused]] const char* m_name;
    [[maybe_unused]] int m_flag;
    int m_location = 0;  // these two are written by the holder only
    int m_depth = 0;
};

}  // namespace VQRegLib

#endif  // PORTABLE_CRITSEC_H
