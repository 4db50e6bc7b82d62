#include "tools/vqreg/terminal/Interruption.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "tools/vqreg/terminal/Output.h"

namespace vqreg {

namespace {

volatile std::sig_atomic_t g_signal = 0;

void remember(int signal) {
    g_signal = signal;
}

// Waits for a byte of standard input or for a signal that is remembered: one that comes just before
// the waiting begins ends it too.
void waitForInput() {
    sigset_t remembered;
    sigemptyset(&remembered);
    sigaddset(&remembered, SIGINT);
    sigaddset(&remembered, SIGTERM);
    sigset_t before;
    sigprocmask(SIG_BLOCK, &remembered, &before);
    if (g_signal == 0) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        ::ppoll(&input, 1, nullptr, &before);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

// A signal that is ignored, as in the background of a script, stays so.
void take(int signal, struct sigaction& before) {
    struct sigaction action {};
    action.sa_handler = remember;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, &before);
    if (before.sa_handler == SIG_IGN) {
        sigaction(signal, &before, nullptr);
    }
}

}  // namespace

Interruption::Interruption() {
    g_signal = 0;
    take(SIGINT, m_interrupt);
    take(SIGTERM, m_terminate);
}

Interruption::~Interruption() {
    if (!m_stays) {
        sigaction(SIGINT, &m_interrupt, nullptr);
        sigaction(SIGTERM, &m_terminate, nullptr);
    }
}

void Interruption::check() {
    if (g_signal != 0) {
        throw Interrupted{g_signal};
    }
}

std::optional<std::string> Interruption::readLine() {
    std::string line;
    for (;;) {
        waitForInput();
        check();
        char byte = 0;
        if (::read(STDIN_FILENO, &byte, 1) != 1) {
            return std::nullopt;
        }
        if (byte == '\n') {
            return line;
        }
        line += byte;
    }
}

void endProcess(const Interrupted& interrupted) {
    note("interrupted; nothing has been changed");
    std::signal(interrupted.signal, SIG_DFL);
    std::raise(interrupted.signal);
    std::abort();  // not reached: the signal is not blocked
}

}  // namespace vqreg
