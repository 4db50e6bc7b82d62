// How processes tell one another that a store has changed.
#ifndef REGLIB_INSTANCE_NOTIFIER_H
#define REGLIB_INSTANCE_NOTIFIER_H

#include <string>

namespace VQRegLib {

// The name of the notification semaphore of a process; the beginning is the same for all, and what
// senders look for.
std::string notificationSemaphoreName(long pid);

// Wakes the notifier of every process that has one, this process's included.
void releaseNotificationSemaphores();

}  // namespace VQRegLib

#endif  // REGLIB_INSTANCE_NOTIFIER_H
