#include "portable/SemaphoreWait.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace VQRegLib {

namespace {

constexpr unsigned long kInfinite = 0xFFFFFFFF;
constexpr std::uint64_t kSliceMilliseconds = 50;  // how late a termination may be noticed

std::uint64_t now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1'000'000;
}

bool waitUntilTime(sem_t* semaphore, std::uint64_t milliseconds) {
    const timespec until{static_cast<time_t>(milliseconds / 1000),
                         static_cast<long>(milliseconds % 1000 * 1'000'000)};
    int result = 0;
    do {
        result = sem_clockwait(semaphore, CLOCK_MONOTONIC, &until);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool waitForever(sem_t* semaphore) {
    int result = 0;
    do {
        result = sem_wait(semaphore);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

}  // namespace

bool waitSemaphore(sem_t* semaphore, unsigned long milliseconds, const CTerminateWait* terminate) {
    if (milliseconds == kInfinite && !terminate) {
        return waitForever(semaphore);
    }
    const std::uint64_t end = milliseconds == kInfinite ? UINT64_MAX : now() + milliseconds;
    if (!terminate) {
        return waitUntilTime(semaphore, end);
    }
    while (!terminate->isTerminated()) {
        const std::uint64_t slice = std::min(end, now() + kSliceMilliseconds);
        if (waitUntilTime(semaphore, slice)) {
            return true;
        }
        if (slice == end) {
            return false;
        }
    }
    return false;
}

}  // namespace VQRegLib
