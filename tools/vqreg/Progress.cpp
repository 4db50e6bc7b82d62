#include "tools/vqreg/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "tools/vqreg/Output.h"

namespace vqreg {

namespace {

constexpr auto kQuietTime = std::chrono::seconds(1);
constexpr auto kBetweenLines = std::chrono::milliseconds(200);

volatile std::sig_atomic_t g_signal = 0;

void remember(int signal) {
    g_signal = signal;
}

}  // namespace

Progress::Progress(std::size_t total)
    : m_total(total),
      m_isTerminal(isatty(STDERR_FILENO) == 1),
      m_start(Clock::now()),
      m_next(m_start + kQuietTime) {}

Progress::~Progress() {
    if (m_isShown) {
        std::fputs("\r\x1b[K", stderr);
    }
}

void Progress::step() {
    ++m_done;
    if (m_isTerminal) {
        const Clock::time_point now = Clock::now();
        if (now >= m_next) {
            show(now);
        }
    }
}

void Progress::show(Clock::time_point now) {
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const double rate = static_cast<double>(m_done) / seconds;
    const double left = static_cast<double>(m_total - m_done) / rate;
    fmt::print(stderr, "\r{} of {} changes, {:.0f} per second, {:.0f} s left\x1b[K", m_done,
               m_total, rate, left);
    m_isShown = true;
    m_next = now + kBetweenLines;
}

Interruption::Interruption() {
    g_signal = 0;
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction action {};
        action.sa_handler = remember;
        sigaction(signal, &action, nullptr);
    }
}

Interruption::~Interruption() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

void Interruption::endProcessIfAsked(const char* message) {
    const int signal = g_signal;
    if (signal != 0) {
        note(message);
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
}

}  // namespace vqreg
