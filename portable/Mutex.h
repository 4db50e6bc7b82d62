// A mutex that all processes of the machine share and that its holder may take again.
#ifndef PORTABLE_MUTEX_H
#define PORTABLE_MUTEX_H

#include <cstdint>

#include "portable/ObjectName.h"
#include "portable/TerminateWait.h"

namespace VQRegLib {

struct CPMutexState;

// The kernel holds it, as a file lock on a named object, and drops it when the holder dies, in
// whatever pid namespace. Nothing about it lies in memory that others may write: whoever may open the
// object can hold the lock, and that is all he can do.
//
// The holder is a thread. All CPMutex objects of a process on one path are one mutex: a thread that
// holds it through one object takes it again through another. A thread that ends while it holds the
// mutex lets go of it.
class CPMutex {
public:
    enum eWaitResult : std::int32_t { eOwned = 0, eTimeout = 2, eTerminated = 3, eFailed = -1 };
    static constexpr unsigned long kInfinite = 0xFFFFFFFF;

    // A fork waits for the making of mutexes to end. A lock that is held while a mutex is made, and
    // for which a fork waits too, must register its own handlers after this.
    static void registerForkHandlers();

    struct Holder {
        std::int32_t pid;       // as the caller's pid namespace numbers it; 0: nobody
        std::int64_t sinceSec;  // seconds since the epoch; 0: unknown
    };

    // (1, 0, path, 1, 1): the four numbers are fixed. Opens the mutex that stands for the path, or
    // makes it.
    CPMutex(int shared, int owned, const CSharedPath& path, int create, int recursive);

    // Lets go of every wait through this object that the calling thread has not released.
    ~CPMutex();
    CPMutex(const CPMutex&) = delete;
    CPMutex& operator=(const CPMutex&) = delete;

    bool isOpen() const { return m_error == 0; }
    int error() const { return m_error; }  // why not, as an errno; also of a wait that has failed

    // Waits for at most so many milliseconds, or without end. `terminate` may be null. A wait without
    // end and terminate is woken at once, others look every few milliseconds. eFailed when the
    // system cannot give a lock or a descriptor for it.
    [[nodiscard]] eWaitResult wait(unsigned long milliseconds, CTerminateWait* terminate);

    // 0, or EPERM when the calling thread does not hold the mutex.
    [[nodiscard]] int release();

    // True while the calling thread holds the mutex and the lock is still behind that: a program that
    // closes all its descriptors loses it, and the lock of an object that somebody has removed keeps
    // nobody out.
    bool isStillHeld() const;

    // A number that the holders leave in the object for one another, and what it is a number of; 0 at
    // first. Everybody may write there. putCounter does nothing, and returns false, when the mutex is
    // not still held.
    struct Counter {
        std::uint64_t number;
        std::uint64_t tag;
    };
    Counter counter() const;
    [[nodiscard]] bool putCounter(const Counter& counter) const;

    // True when the calling thread holds the mutex through this object.
    bool isHeldHere() const;

    // True when the calling thread holds the mutex through another object of this process.
    bool isHeldThroughAnother() const;

    // In a child of fork: what its parent had not released through this object is not the child's.
    void forgetInherited() { m_waits = 0; }

    // Writes down since when the calling thread holds the mutex, for holder(); worth its system call
    // where the mutex is going to be held for longer than a moment.
    void noteHolding() const;

    // A mark in the object, for what must outlive its holder and everybody else; with the mutex held.
    // Everybody may set it: it may be a hint, and no more.
    void setMark(bool isSet) const;
    bool isMarked() const;

    // Who holds it at this moment; only good for telling a person.
    Holder holder() const;

private:
    int waits() const;

    int m_error = 0;

    CPMutexState* m_shared;  // shared by the process, never freed
    // Waits through this object that are not yet released, and the holding that they are part of: a
    // thread that ends leaves them behind. Changed by the holder only.
    int m_waits = 0;
    std::uint64_t m_holding = 0;
};

}  // namespace VQRegLib

#endif  // PORTABLE_MUTEX_H
