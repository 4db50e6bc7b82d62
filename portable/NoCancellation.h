// Keeps pthread_cancel away from a piece of code.
#ifndef PORTABLE_NOCANCELLATION_H
#define PORTABLE_NOCANCELLATION_H

#include <pthread.h>

namespace VQRegLib {

// A thread that is cancelled unwinds like an exception that must not be caught. Code that holds
// locks or catches everything puts that off until it is done.
class CNoCancellation {
public:
    CNoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nOld); }
    ~CNoCancellation() { pthread_setcancelstate(m_nOld, nullptr); }
    CNoCancellation(const CNoCancellation&) = delete;
    CNoCancellation& operator=(const CNoCancellation&) = delete;

private:
    int m_nOld = PTHREAD_CANCEL_ENABLE;
};

}  // namespace VQRegLib

#endif  // PORTABLE_NOCANCELLATION_H
