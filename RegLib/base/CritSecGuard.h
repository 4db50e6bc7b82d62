// Holds a critical section for a scope.
#ifndef REGLIB_BASE_CRITSECGUARD_H
#define REGLIB_BASE_CRITSECGUARD_H

#include "portable/CritSec.h"
#include "portable/ThreadAnnotations.h"

namespace VQRegLib {

class SCOPED_CAPABILITY CCritSecGuard {
public:
    CCritSecGuard(CPCritSec& critSec, int location) ACQUIRE(critSec)
        : m_critSec(critSec), m_location(location) {
        m_critSec.enter(m_location);
    }
    ~CCritSecGuard() RELEASE() { m_critSec.leave(m_location); }
    CCritSecGuard(const CCritSecGuard&) = delete;
    CCritSecGuard& operator=(const CCritSecGuard&) = delete;

private:
    CPCritSec& m_critSec;
    const int m_location;
};

}  // namespace VQRegLib

#endif  // REGLIB_BASE_CRITSECGUARD_H
