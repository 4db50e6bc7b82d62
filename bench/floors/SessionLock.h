/// What every operation of every session needs: one thread at a time, known by name, and the stamp
/// that tells that no other process has changed anything.
#ifndef VQREG_BENCH_SESSION_LOCK_H
#define VQREG_BENCH_SESSION_LOCK_H

#include <sched.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "support/System.h"

namespace bench {

// One word that holds its owner.
class SessionLock {
public:
    void lock() {
        const void* nobody = nullptr;
        while (!m_owner.compare_exchange_strong(nobody, &t_me, std::memory_order_acquire)) {
            require(nobody != &t_me, "the lock is taken twice");
            nobody = nullptr;
            sched_yield();
        }
    }
    void unlock() { m_owner.store(nullptr, std::memory_order_release); }

private:
    static inline thread_local char t_me = 0;
    std::atomic<const void*> m_owner = nullptr;
};

class Stamp {
public:
    explicit Stamp(const std::string& directory) : m_shared(directory + "/stamp") { take(); }

    bool isMine() const { return m_shared->load(std::memory_order_acquire) == m_seen; }
    void renew() { m_seen = m_shared->fetch_add(1, std::memory_order_acq_rel) + 1; }
    void take() { m_seen = m_shared->load(std::memory_order_acquire); }

private:
    Shared<std::atomic<std::uint64_t>> m_shared;
    std::uint64_t m_seen = 0;
};

}  // namespace bench

#endif  // VQREG_BENCH_SESSION_LOCK_H
