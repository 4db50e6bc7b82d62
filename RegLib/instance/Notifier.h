// How processes tell one another that a store has changed.
#ifndef REGLIB_INSTANCE_NOTIFIER_H
#define REGLIB_INSTANCE_NOTIFIER_H

namespace VQRegLib {

// Wakes the notifier of every process that has one, this process's included.
void releaseNotificationSemaphores();

}  // namespace VQRegLib

#endif  // REGLIB_INSTANCE_NOTIFIER_H
