#include "tools/vqreg/store/ChangeSignals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace vqreg {

namespace {

int g_ended = -1;

void endWait(int /*signal*/) {
    const int error = errno;
    raiseEvent(g_ended);
    errno = error;
}

}  // namespace

ChangeSignals::ChangeSignals(VQRegLib::CRegLib& session, const std::string& file)
    : m_ended(checkedDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      m_source(session, file) {
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

ChangeSignals::eNews ChangeSignals::wait(std::chrono::milliseconds limit) {
    const auto news = m_source.descriptors();
    pollfd sources[] = {{m_ended.get(), POLLIN, 0},
                        {STDOUT_FILENO, 0, 0},  // only for its end
                        news[0],
                        news[1]};
    const int count = ::poll(sources, std::size(sources), static_cast<int>(limit.count()));
    if (count <= 0) {
        return eNews::eNothing;
    }
    if (sources[0].revents != 0 || sources[1].revents != 0) {
        return eNews::eEnd;
    }
    m_source.drain();
    return eNews::eChange;
}

}  // namespace vqreg
