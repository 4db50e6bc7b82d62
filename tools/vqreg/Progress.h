// Work that takes long enough to be watched.
#ifndef TOOLS_VQREG_PROGRESS_H
#define TOOLS_VQREG_PROGRESS_H

#include <chrono>
#include <cstddef>

namespace vqreg {

// A line on standard error, if that is a terminal and the work takes more than a second.
class Progress {
public:
    explicit Progress(std::size_t total);
    ~Progress();  // removes the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void step();

private:
    using Clock = std::chrono::steady_clock;

    void show(Clock::time_point now);

    const std::size_t m_total;
    std::size_t m_done = 0;
    const bool m_isTerminal;
    bool m_isShown = false;
    const Clock::time_point m_start;
    Clock::time_point m_next;
};

// While it lives, SIGINT and SIGTERM are only remembered.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    // Ends the process as the signal would have, if there was one.
    static void endProcessIfAsked(const char* message);
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_PROGRESS_H
