#include "tools/vqreg/store/ChangeSignals.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

int g_ended = -1;

void endWait(int /*signal*/) {
    const int error = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(g_ended, &one, sizeof one);
    errno = error;
}

int openEvent() {
    const int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0) {
        throw unavailable(fmt::format("eventfd: {}", std::strerror(errno)));
    }
    return fd;
}

}  // namespace

ChangeSignals::ChangeSignals(const std::string& file) : m_ended(openEvent()), m_source(file) {
    g_ended = m_ended.get();
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction action {};
        action.sa_handler = endWait;
        ::sigaction(signal, &action, nullptr);
    }
}

ChangeSignals::~ChangeSignals() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

std::optional<eNews> ChangeSignals::wait() {
    pollfd sources[] = {{m_ended.get(), POLLIN, 0},
                        {STDOUT_FILENO, 0, 0},  // only for its end
                        {m_source.descriptor(), POLLIN, 0}};
    const int count = ::poll(sources, std::size(sources), millisecondsUntil(m_source.nextPoll()));
    if (count > 0 && (sources[0].revents != 0 || sources[1].revents != 0)) {
        return std::nullopt;
    }
    return m_source.take();
}

}  // namespace vqreg
