// An event of one process: set by any thread, taken by the thread that waits.
#ifndef PORTABLE_EVENT_H
#define PORTABLE_EVENT_H

#include <semaphore.h>

#include <atomic>
#include <string>

#include "portable/TerminateWait.h"

namespace VQRegLib {

class CPEvent {
public:
    static constexpr unsigned long kInfinite = 0xFFFFFFFF;

    // (1, "", 1): the only kind there is. It is set until a wait takes it; setting it again before
    // that changes nothing.
    CPEvent(int autoReset, const std::string& name, int create);
    ~CPEvent();
    CPEvent(const CPEvent&) = delete;
    CPEvent& operator=(const CPEvent&) = delete;

    void set(int reserved);

    // True when the event was taken, false when the time was over or the wait was terminated.
    [[nodiscard]] bool wait(unsigned long milliseconds, CTerminateWait* terminate);

private:
    // Not a condition variable: one that another thread waits on cannot be destroyed in a child of
    // fork, where that thread does not exist.
    sem_t m_semaphore;
    std::atomic<bool> m_isSet{false};
};

}  // namespace VQRegLib

#endif  // PORTABLE_EVENT_H
