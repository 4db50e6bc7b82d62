#include "tools/browse/Signals.h"

#include <fmt/format.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr int kOthers[] = {SIGWINCH, SIGTSTP, SIGCONT};

sigset_t wanted() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kEnding) {
        struct sigaction present {};
        ::sigaction(signal, nullptr, &present);
        if (present.sa_handler != SIG_IGN) {
            sigaddset(&signals, signal);
        }
    }
    for (const int signal : kOthers) {
        sigaddset(&signals, signal);
    }
    return signals;
}

int openHandle(sigset_t& before) {
    const sigset_t signals = wanted();
    sigprocmask(SIG_BLOCK, &signals, &before);
    const int fd = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd < 0) {
        throw unavailable(fmt::format("signalfd: {}", std::strerror(errno)));
    }
    return fd;
}

}  // namespace

Signals::Signals() : m_handle(openHandle(m_before)) {}

Signals::~Signals() {
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

std::optional<int> Signals::next() const {
    signalfd_siginfo info{};
    if (::read(m_handle.get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info)) {
        return std::nullopt;
    }
    return static_cast<int>(info.ssi_signo);
}

bool Signals::ends(int signal) {
    for (const int each : kEnding) {
        if (each == signal) {
            return true;
        }
    }
    return false;
}

void endBySignal(int signal) {
    sigset_t none;
    sigemptyset(&none);
    std::signal(signal, SIG_DFL);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    std::raise(signal);
    std::abort();  // not reached: the signal is not blocked
}

}  // namespace vqreg
