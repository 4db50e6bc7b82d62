// The session lock, as whoever may have an update on the same file through another store enters it.
#ifndef REGLIB_SESSION_SESSIONLOCK_H
#define REGLIB_SESSION_SESSIONLOCK_H

#include <atomic>
#include <cstdint>

#include "RegLib/store/Store.h"
#include "portable/ThreadAnnotations.h"

namespace VQRegLib {

// A thread that has an update on the same file through another store must not wait for the session
// lock without end: its holder may be waiting for that update. False after some tries.
// Not checked, as the next one is not: what enters only perhaps is checked where it is called.
bool enterDuringUpdates(CRegLibImpl& store, int location) TRY_ACQUIRE(true, store.m_critSec);

// Whether the calling thread is such a one.
inline bool isInUpdateElsewhere(const CRegLibImpl& store) {
    return CRegLibImpl::m_openUpdates.load(std::memory_order_relaxed) != 0 &&
           store.isUpdatedElsewhere();
}

// Enters the store's session lock.
inline bool enterSession(CRegLibImpl& store, int location)
    TRY_ACQUIRE(true, store.m_critSec) NO_THREAD_SAFETY_ANALYSIS {
    if (CRegLibImpl::m_openUpdates.load(std::memory_order_relaxed) != 0) [[unlikely]] {
        return enterDuringUpdates(store, location);
    }
    store.m_critSec.enter(location);
    return true;
}

// The same where nothing stands in the way and nothing has to be called: as most operations begin.
inline bool tryEnterSessionAtOnce(CRegLibImpl& store, int location)
    TRY_ACQUIRE(true, store.m_critSec) NO_THREAD_SAFETY_ANALYSIS {
    return CRegLibImpl::m_openUpdates.load(std::memory_order_relaxed) == 0 &&
           store.m_critSec.tryEnterAtOnce(location);
}

// Drops so many levels of the update of that number, if the calling thread is in it.
void dropUpdates(CRegLibImpl& store, std::uint32_t number, int levels);

// Holds the lock for a scope, if it could be entered.
class CSessionGuard {
public:
    CSessionGuard(CRegLibImpl& store, int location) NO_THREAD_SAFETY_ANALYSIS
        : m_store(store),
          m_location(location),
          m_isEntered(enterSession(store, location)) {}
    ~CSessionGuard() NO_THREAD_SAFETY_ANALYSIS {
        if (m_isEntered) {
            m_store.m_critSec.leave(m_location);
        }
    }
    CSessionGuard(const CSessionGuard&) = delete;
    CSessionGuard& operator=(const CSessionGuard&) = delete;

    bool isEntered() const { return m_isEntered; }

private:
    CRegLibImpl& m_store;
    const int m_location;
    const bool m_isEntered;
};

}  // namespace VQRegLib

#endif  // REGLIB_SESSION_SESSIONLOCK_H
