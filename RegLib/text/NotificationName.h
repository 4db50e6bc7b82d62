// The names of the semaphores through which processes tell one another of changes.
#ifndef REGLIB_TEXT_NOTIFICATIONNAME_H
#define REGLIB_TEXT_NOTIFICATIONNAME_H

#include <string>

namespace VQRegLib {

// The beginning is the same for all, and what senders look for.
constexpr char kNotificationPrefix[] = "REG-CHANGENOTIF-SEM-BF96420F-BEA8-4a58-AA2E-FA2A7AE7F5A5-";

// That of a process.
std::string notificationSemaphoreName(long pid);

}  // namespace VQRegLib

#endif  // REGLIB_TEXT_NOTIFICATIONNAME_H
