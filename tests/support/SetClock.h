// The time by which the library chooses its log file.
#ifndef VQTEST_SET_CLOCK_H
#define VQTEST_SET_CLOCK_H

#include <atomic>
#include <ctime>

namespace vqtest {

extern std::atomic<std::time_t> g_now;

/// What the next look alone tells; 0 for g_now.
extern std::atomic<std::time_t> g_once;

}  // namespace vqtest

#endif  // VQTEST_SET_CLOCK_H
