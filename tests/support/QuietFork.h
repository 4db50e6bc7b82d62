// fork() of a test that has threads.
#ifndef VQTEST_QUIET_FORK_H
#define VQTEST_QUIET_FORK_H

#include <poll.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "support/Threads.h"

namespace vqtest {

/// Whether no thread of this process but the calling one is at work.
inline bool areOthersAsleep() {
    const long own = ::gettid();
    std::error_code gone;  // a thread that ends meanwhile is none that works
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", gone)) {
        const long id = std::strtol(task.path().filename().c_str(), nullptr, 10);
        if (id != own && !isAsleep(id)) {
            return false;
        }
    }
    return true;
}

/// As fork(). AddressSanitizer does not make its allocator ready for a fork, as the system's is: a child
/// that is forked while another thread is allocating could wait for ever when it allocates. So the fork
/// waits until the others sleep, but no longer than that: a test may keep them at work.
inline pid_t forkQuietly([[maybe_unused]] std::chrono::milliseconds patience) {
#if defined(VQTEST_SANITIZED) && !defined(__SANITIZE_THREAD__)
    constexpr int kLooks = 4;  // a thread may sleep for a moment on its way
    const auto end = std::chrono::steady_clock::now() + patience;
    int asleep = 0;
    while (asleep < kLooks && std::chrono::steady_clock::now() < end) {
        ::poll(nullptr, 0, 1);  // not one of the calls that tests count
        asleep = areOthersAsleep() ? asleep + 1 : 0;
    }
#endif
    return ::fork();
}

}  // namespace vqtest

#endif  // VQTEST_QUIET_FORK_H
