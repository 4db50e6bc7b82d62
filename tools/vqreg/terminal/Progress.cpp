#include "tools/vqreg/terminal/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace vqreg {

namespace {

constexpr auto kQuietTime = std::chrono::seconds(1);
constexpr auto kBetweenLines = std::chrono::milliseconds(200);

}  // namespace

Progress::Progress(std::size_t total, const char* what)
    : m_total(total),
      m_what(what),
      m_isWatched(isWatched()),
      m_start(Clock::now()),
      m_next(m_start + kQuietTime) {}

Progress::~Progress() {
    if (m_isShown) {
        std::fputs("\r\x1b[K", stderr);
    }
}

bool Progress::isWatched() {
    return isatty(STDERR_FILENO) == 1;
}

void Progress::step(std::size_t count) {
    m_done += count;
    if (m_isWatched) {
        const Clock::time_point now = Clock::now();
        if (now >= m_next) {
            show(now);
        }
    }
}

void Progress::show(Clock::time_point now) {
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const double rate = static_cast<double>(m_done) / seconds;
    const std::size_t total = std::max(m_total, m_done);  // the total may have grown meanwhile
    const double left = static_cast<double>(total - m_done) / rate;
    const std::string line = fmt::format("\r{} of {} {}, {:.0f} per second, {:.0f} s left\x1b[K",
                                         m_done, total, m_what, rate, left);
    std::fputs(line.c_str(), stderr);  // where it cannot be shown the work goes on without
    m_isShown = true;
    m_next = now + kBetweenLines;
}

}  // namespace vqreg
