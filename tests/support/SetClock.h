// The time by which the library chooses its log file.
#ifndef VQTEST_SET_CLOCK_H
#define VQTEST_SET_CLOCK_H

#include <atomic>
#include <ctime>

namespace vqtest {

extern std::atomic<std::time_t> g_now;

}  // namespace vqtest

#endif  // VQTEST_SET_CLOCK_H
