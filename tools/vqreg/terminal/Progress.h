// Work that takes long enough to be watched.
#ifndef TOOLS_VQREG_TERMINAL_PROGRESS_H
#define TOOLS_VQREG_TERMINAL_PROGRESS_H

#include <chrono>
#include <cstddef>

namespace vqreg {

// A line on standard error, if that is a terminal and the work takes more than a second.
class Progress {
public:
    // What is counted, in the plural.
    Progress(std::size_t total, const char* what);
    ~Progress();  // removes the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    static bool isWatched();  // whether there is anybody to show it to
    void step(std::size_t count = 1);

private:
    using Clock = std::chrono::steady_clock;

    void show(Clock::time_point now);

    const std::size_t m_total;
    const char* const m_what;
    std::size_t m_done = 0;
    const bool m_isWatched;
    bool m_isShown = false;
    const Clock::time_point m_start;
    Clock::time_point m_next;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_TERMINAL_PROGRESS_H
