#include "fault/Clock.h"

#include <atomic>
#include <ctime>

namespace vqtorture {

namespace {

constexpr std::time_t kDay = 24L * 60 * 60;

std::atomic<std::time_t> s_ahead{0};

}  // namespace

void passMidnight() {
    s_ahead += kDay;
}

}  // namespace vqtorture

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" std::time_t __real_time(std::time_t* out);
extern "C" std::time_t __wrap_time(std::time_t* out);

extern "C" std::time_t __wrap_time(std::time_t* out) {
    const std::time_t now = __real_time(nullptr) + vqtorture::s_ahead.load();
    if (out) {
        *out = now;
    }
    return now;
}
// NOLINTEND(bugprone-reserved-identifier)
