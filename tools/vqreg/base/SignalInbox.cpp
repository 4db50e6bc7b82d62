#include "tools/vqreg/base/SignalInbox.h"

#include <fmt/format.h>
#include <strings.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

sigset_t keptSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGALRM,
                             SIGWINCH, SIGURG, SIGIO, SIGPWR}) {
        sigaddset(&set, signal);
    }
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
        sigaddset(&set, signal);
    }
    return set;
}

int openInbox(sigset_t& before) {
    const sigset_t kept = keptSignals();
    const int fd = ::signalfd(-1, &kept, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd < 0) {
        throw unavailable(fmt::format("signalfd: {}", std::strerror(errno)));
    }
    sigprocmask(SIG_BLOCK, &kept, &before);
    return fd;
}

struct OtherName {
    const char* name;
    int number;
};
constexpr OtherName kOtherNames[] = {{"IO", SIGIO}, {"CLD", SIGCHLD}, {"IOT", SIGABRT}};

std::optional<int> numberOf(std::string_view text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

// RTMIN, RTMIN+1, RTMAX-1, RTMAX.
std::optional<int> realTimeSignal(std::string_view name) {
    const bool isFirst = ::strncasecmp(name.data(), "RTMIN", 5) == 0;
    if (!isFirst && ::strncasecmp(name.data(), "RTMAX", 5) != 0) {
        return std::nullopt;
    }
    const std::string_view distance = name.substr(5);
    if (distance.empty()) {
        return isFirst ? SIGRTMIN : SIGRTMAX;
    }
    const auto number = numberOf(distance.substr(1));
    const int most = SIGRTMAX - SIGRTMIN;
    if (distance[0] != (isFirst ? '+' : '-') || !number || *number < 0 || *number > most) {
        return std::nullopt;
    }
    return isFirst ? SIGRTMIN + *number : SIGRTMAX - *number;
}

// What the caller has this process ignore, the child ignores as well.
bool isIgnored(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

}  // namespace

// Where SIGCHLD is ignored, the system keeps the end of a child from its parent.
SignalInbox::SignalInbox() : m_inbox(openInbox(m_before)) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &action, &m_childBefore);
}

std::optional<SignalInbox::Letter> SignalInbox::next() {
    signalfd_siginfo info{};
    if (::read(m_inbox.get(), &info, sizeof info) != sizeof info) {
        return std::nullopt;
    }
    const int signal = static_cast<int>(info.ssi_signo);
    const bool isFromKernel = info.ssi_code == SI_KERNEL;
    // Of its end a terminal tells the first process of its session alone.
    const bool isEndOfTerminal = signal == SIGHUP && isFromKernel;
    const bool isFinal = (signal == SIGTERM || isEndOfTerminal) && !isIgnored(signal);
    const bool isInterruption = (signal == SIGINT || signal == SIGQUIT) && !isIgnored(signal);
    return Letter{signal, isFromKernel && !(isEndOfTerminal && ::getsid(0) == ::getpid()),
                  isFinal || isInterruption, isFinal};
}

void SignalInbox::giveBack() const {
    sigaction(SIGCHLD, &m_childBefore, nullptr);
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

std::optional<int> signalNumber(const std::string& text) {
    if (const auto number = numberOf(text); number && *number > 0 && *number <= SIGRTMAX) {
        return number;
    }
    const char* const name = text.c_str() + (::strncasecmp(text.c_str(), "SIG", 3) == 0 ? 3 : 0);
    for (int number = 1; number < SIGRTMIN; ++number) {
        const char* const known = ::sigabbrev_np(number);
        if (known && ::strcasecmp(name, known) == 0) {
            return number;
        }
    }
    for (const OtherName& other : kOtherNames) {
        if (::strcasecmp(name, other.name) == 0) {
            return other.number;
        }
    }
    return realTimeSignal(name);
}

}  // namespace vqreg
