#include "support/SetClock.h"

namespace vqtest {

std::atomic<std::time_t> g_now{0};
std::atomic<std::time_t> g_once{0};

}  // namespace vqtest

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" std::time_t __wrap_time(std::time_t* out);

extern "C" std::time_t __wrap_time(std::time_t* out) {
    const std::time_t once = vqtest::g_once.exchange(0);
    const std::time_t now = once != 0 ? once : vqtest::g_now.load();
    if (out) {
        *out = now;
    }
    return now;
}
// NOLINTEND(bugprone-reserved-identifier)
