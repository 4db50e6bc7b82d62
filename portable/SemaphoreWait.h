// Waiting on a POSIX semaphore with a limit and a way out.
#ifndef PORTABLE_SEMAPHOREWAIT_H
#define PORTABLE_SEMAPHOREWAIT_H

#include <semaphore.h>

#include "portable/TerminateWait.h"

namespace VQRegLib {

// True when the semaphore was taken. 0xFFFFFFFF milliseconds have no end; `terminate` may be null.
bool waitSemaphore(sem_t* semaphore, unsigned long milliseconds, const CTerminateWait* terminate);

}  // namespace VQRegLib

#endif  // PORTABLE_SEMAPHOREWAIT_H
