// Keeps pthread_cancel away from a piece of code.
#ifndef PORTABLE_NOCANCELLATION_H
#define PORTABLE_NOCANCELLATION_H

#include <pthread.h>

namespace VQRegLib {

// A thread that is cancelled unwinds like an exception that must not be caught, at the first system
// call that it comes to. Code that holds locks or catches everything and comes to one puts that off
// until it is done; what comes to none needs not. Cancellation that strikes anywhere
// (PTHREAD_CANCEL_ASYNCHRONOUS) is for no thread that uses more of a library than its arithmetic.
class CNoCancellation {
public:
    CNoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_old); }
    ~CNoCancellation() { pthread_setcancelstate(m_old, nullptr); }
    CNoCancellation(const CNoCancellation&) = delete;
    CNoCancellation& operator=(const CNoCancellation&) = delete;

private:
    int m_old = PTHREAD_CANCEL_ENABLE;
};

}  // namespace VQRegLib

#endif  // PORTABLE_NOCANCELLATION_H
