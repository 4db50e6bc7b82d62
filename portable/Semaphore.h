// A named counting semaphore that all processes of the machine share.
#ifndef PORTABLE_SEMAPHORE_H
#define PORTABLE_SEMAPHORE_H

#include <semaphore.h>

#include <atomic>
#include <memory>
#include <string>

#include "portable/SharedObject.h"
#include "portable/TerminateWait.h"

namespace VQRegLib {

// A semaphore may have owners: processes that wait on it. The kernel knows whether one lives, by a
// lock on the object's file; so a semaphore whose owners are all gone can be told from one in use,
// whatever pid namespaces or reused process ids say.
class CPSemaphore {
public:
    static constexpr unsigned long kInfinite = 0xFFFFFFFF;
    static constexpr int kAttempts = 100;  // each waits a millisecond for a sender that is looking

    // (1, initial, 0x7fffffff, name, 1): opens the semaphore of that name, or makes it with the
    // initial count.
    CPSemaphore(int shared, int initial, int maximum, const std::string& name, int create);
    ~CPSemaphore();  // the semaphore itself stays
    CPSemaphore(const CPSemaphore&) = delete;
    CPSemaphore& operator=(const CPSemaphore&) = delete;

    bool isOpen() const { return semaphore() != nullptr; }
    int error() const { return m_error; }  // why not, as an errno
    bool isCreator() const { return m_object->isCreator(); }

    // True when the count was taken. False soon when somebody has cut the semaphore's file short; such
    // a semaphore is nobody's any more. Releasing one does nothing.
    [[nodiscard]] bool wait(unsigned long milliseconds, CTerminateWait* terminate);
    void release();

    // Makes the calling process an owner until it ends. A process that ends normally takes the
    // semaphore with it. One semaphore per process. False, with error(), when that is impossible.
    [[nodiscard]] bool own(int attempts = kAttempts);

    // Waits, 100 ms at most, while somebody holds a lock on the semaphore of that name with which
    // nobody can own it.
    static void waitUntilFree(const std::string& name);

    // The user whose file is under that name; -1 when there is none.
    static long userOf(const std::string& name);

    // True while the calling process owns the semaphore and the name still means it. A program that
    // closes all its descriptors owns nothing any more.
    bool isOwner() const;

    // True when the exit of the process has taken along what it owned; it can own nothing then.
    static bool isExiting();

    // True when no process owns the semaphore of that name; its name is then taken away.
    static bool removeIfOwnerless(const std::string& name);

    // The same for one that may be of a program that knows nothing of owners: its name must end in a
    // number that no process has, and it must have been made more than a moment ago.
    static bool removeIfAbandoned(const std::string& name);

private:
    sem_t* semaphore() const { return static_cast<sem_t*>(m_object->address()); }
    void openObject();
    [[nodiscard]] int tryToOwn(int* fd) const;

    std::string m_name;
    std::unique_ptr<CSharedObject> m_object;
    int m_error = 0;
    std::atomic<bool> m_isAnnounced{false};  // that this process waits
};

}  // namespace VQRegLib

#endif  // PORTABLE_SEMAPHORE_H
