// A critical section of one process that its holder may enter again.
#ifndef PORTABLE_CRITSEC_H
#define PORTABLE_CRITSEC_H

#include <pthread.h>

namespace VQRegLib {

class CPCritSec {
public:
    // `name` helps in a debugger and must live as long as the object. `flag` is 1: re-entrant, the
    // only kind there is.
    CPCritSec(const char* name, int flag);
    ~CPCritSec();  // leaves it first if the calling thread is inside
    CPCritSec(const CPCritSec&) = delete;
    CPCritSec& operator=(const CPCritSec&) = delete;

    // `location` marks the place in the source that enters; the last one is kept for a debugger.
    void enter(int location);
    void leave(int location);

    // Enters if that needs no waiting.
    bool tryEnter(int location);

    // In a child of fork that has inherited it entered: nobody is inside any more.
    void forgetInherited();

private:
    pthread_mutex_t m_mutex;
    [[maybe_unused]] const char* m_pszName;
    [[maybe_unused]] int m_nFlag;
    int m_nLocation = 0;  // these two are written by the holder only
    int m_nDepth = 0;
};

}  // namespace VQRegLib

#endif  // PORTABLE_CRITSEC_H
