// A mutex that all processes of the machine share and that its holder may take again.
#ifndef PORTABLE_MUTEX_H
#define PORTABLE_MUTEX_H

#include <cstdint>
#include <string>

#include "portable/TerminateWait.h"

namespace VQRegLib {

struct CPMutexState;

// The holder is a thread. All CPMutex objects of a process on one path are one mutex: a thread that
// holds it through one object takes it again through another.
class CPMutex {
public:
    enum eWaitResult : std::int32_t {
        eOwned = 0,
        eOwnerDied = 1,  // owned, and the process or thread that held it died holding it
        eTimeout = 2,
        eTerminated = 3,
        eFailed = -1
    };
    static constexpr unsigned long kInfinite = 0xFFFFFFFF;

    // A fork waits for the making of mutexes to end. A lock that is held while a mutex is made, and
    // for which a fork waits too, must register its own handlers after this.
    static void registerForkHandlers();

    struct Holder {
        std::int32_t pid;       // as its own pid namespace numbers it; 0: nobody
        std::int64_t sinceSec;  // seconds since the epoch
    };

    // (1, 0, path, 1, 1): the four numbers are fixed. Opens the mutex that stands for the path, or
    // makes it.
    CPMutex(int shared, int owned, const std::string& path, int create, int recursive);

    // Lets go of every wait through this object that the calling thread has not released.
    ~CPMutex();
    CPMutex(const CPMutex&) = delete;
    CPMutex& operator=(const CPMutex&) = delete;

    bool isOpen() const { return m_pState != nullptr; }
    int error() const { return m_nError; }  // why not, as an errno

    // Waits for at most so many milliseconds, or without end. `terminate` may be null.
    eWaitResult wait(unsigned long milliseconds, CTerminateWait* terminate);

    // 0, or EPERM when the calling thread does not hold the mutex.
    int release();

    // True when the calling thread holds the mutex through another object of this process.
    bool isHeldThroughAnother() const;

    // In a child of fork: what its parent had not released through this object is not the child's.
    void forgetInherited() { m_nWaits = 0; }

    // Who holds it at this moment; only good for telling a person.
    Holder holder() const;

private:
    int m_nError = 0;        // before the state, whose making sets it
    CPMutexState* m_pState;  // shared by the process, never freed
    int m_nWaits = 0;        // through this object and not yet released; changed by the holder only
};

}  // namespace VQRegLib

#endif  // PORTABLE_MUTEX_H
