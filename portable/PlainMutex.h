// std::mutex, and a scope that holds it, as clang's check of locks wants them.
#ifndef PORTABLE_PLAINMUTEX_H
#define PORTABLE_PLAINMUTEX_H

#include <mutex>

#include "portable/ThreadAnnotations.h"

namespace VQRegLib {

// Its holder may not enter again.
class CAPABILITY("mutex") CPlainMutex {
public:
    void lock() ACQUIRE() { m_mutex.lock(); }
    [[nodiscard]] bool tryLock() TRY_ACQUIRE(true) { return m_mutex.try_lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

class SCOPED_CAPABILITY CPlainGuard {
public:
    enum eHow { eAdopt };

    explicit CPlainGuard(CPlainMutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    CPlainGuard(CPlainMutex& mutex, eHow /*held already*/) REQUIRES(mutex) : m_mutex(mutex) {}
    ~CPlainGuard() RELEASE() { m_mutex.unlock(); }
    CPlainGuard(const CPlainGuard&) = delete;
    CPlainGuard& operator=(const CPlainGuard&) = delete;

private:
    CPlainMutex& m_mutex;
};

}  // namespace VQRegLib

#endif  // PORTABLE_PLAINMUTEX_H
