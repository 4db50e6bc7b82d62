// A POSIX semaphore in memory that others may take away.
#ifndef PORTABLE_SHAREDCOUNT_H
#define PORTABLE_SHAREDCOUNT_H

#include <semaphore.h>

namespace VQRegLib {

// The semaphores of processes lie in mapped files that every user may write, and so cut short; after
// that, to touch the mapping is to die. So, where pointers have 64 bits, this process never touches it:
// the kernel counts, waits and looks, and answers EFAULT where there is no memory any more. To others,
// also to programs that use sem_open, it is a semaphore as any other.
//
// One process waits on a semaphore; that several may post to it is what it is for.
class CSharedCount {
public:
    enum eOutcome { eTaken, eTimeout, eLost };

    explicit CSharedCount(sem_t* semaphore) : m_semaphore(semaphore) {}

    // False when the memory has gone.
    [[nodiscard]] bool post() const;

    // Makes known that somebody waits, or is going to: others wake nobody else. Once is enough, and is
    // never taken back: it costs those who post a call, and lasts no longer than the semaphore's owner.
    [[nodiscard]] bool announceWaiting() const;

    // Waits for at most so many milliseconds, announced.
    [[nodiscard]] eOutcome wait(unsigned long milliseconds) const;

private:
    sem_t* m_semaphore;
};

}  // namespace VQRegLib

#endif  // PORTABLE_SHAREDCOUNT_H
