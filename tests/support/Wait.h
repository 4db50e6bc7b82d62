// Waiting for something that another thread or process brings about.
#ifndef VQTEST_WAIT_H
#define VQTEST_WAIT_H

#include <algorithm>
#include <chrono>
#include <thread>

namespace vqtest {

/// Polls `predicate` until it holds or the deadline has passed. It is asked at least once, and once
/// more after the deadline, so a slow machine does not make a true condition look false.
/// @return what the predicate said last
template <typename Predicate>
bool waitUntil(Predicate predicate,
               std::chrono::milliseconds deadline = std::chrono::milliseconds(20000)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    auto nap = std::chrono::microseconds(200);
    while (!predicate()) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= end) {
            return static_cast<bool>(predicate());
        }
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - now);
        std::this_thread::sleep_for(std::min(nap, left));
        nap = std::min(nap * 2, std::chrono::microseconds(20000));
    }
    return true;
}

}  // namespace vqtest

#endif  // VQTEST_WAIT_H
