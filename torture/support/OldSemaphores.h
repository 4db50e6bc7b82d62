// Semaphores of processes that have ended.
#ifndef VQTORTURE_OLD_SEMAPHORES_H
#define VQTORTURE_OLD_SEMAPHORES_H

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "support/Handlers.h"

namespace vqtorture {

/// Removes them, so that a sender makes as many system calls each time: it looks at every semaphore there is.
inline void removeOldSemaphores() {
    for (const std::string& file : vqtest::semaphoreFiles()) {
        const pid_t pid = std::stoi(file.substr(file.rfind('-') + 1));
        if (::kill(pid, 0) != 0 && errno == ESRCH) {
            ::unlink(file.c_str());
        }
    }
}

}  // namespace vqtorture

#endif  // VQTORTURE_OLD_SEMAPHORES_H
