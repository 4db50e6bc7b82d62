#include "tools/vqreg/store/ChangeSignals.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

int g_ended = -1;

void raiseEvent(int fd) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof one);
}

void endWait(int /*signal*/) {
    const int error = errno;
    raiseEvent(g_ended);
    errno = error;
}

// An empty pipe of events; only that there were some matters.
void drain(int fd) {
    alignas(inotify_event) char buffer[4096];
    while (::read(fd, buffer, sizeof buffer) > 0) {
    }
}

int checked(int fd, const char* what) {
    if (fd < 0) {
        throw CommandError(eExit::eUnavailable, fmt::format("{}: {}", what, std::strerror(errno)));
    }
    return fd;
}

}  // namespace

void ChangeSignals::Handler::OnRegistryChange() {
    raiseEvent(m_fd);
}

ChangeSignals::ChangeSignals(VQRegLib::CRegLib& session, const std::string& file)
    : m_session(session),
      m_notified(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      m_ended(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      m_directory(checked(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK), "inotify")),
      m_handler(m_notified.get()) {
    const std::string directory = std::filesystem::path(file).parent_path().string();
    checked(::inotify_add_watch(m_directory.get(), directory.c_str(),
                                IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE),
            directory.c_str());
    m_session.SetRegistryChangeHandler(&m_handler);
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
    m_session.ClrRegistryChangeHandler(&m_handler);
}

ChangeSignals::eNews ChangeSignals::wait(std::chrono::milliseconds limit) {
    pollfd sources[] = {{m_ended.get(), POLLIN, 0},
                        {STDOUT_FILENO, 0, 0},  // only for its end
                        {m_notified.get(), POLLIN, 0},
                        {m_directory.get(), POLLIN, 0}};
    const int count = ::poll(sources, std::size(sources), static_cast<int>(limit.count()));
    if (count <= 0) {
        return eNews::eNothing;
    }
    if (sources[0].revents != 0 || sources[1].revents != 0) {
        return eNews::eEnd;
    }
    drain(m_notified.get());
    drain(m_directory.get());
    return eNews::eChange;
}

}  // namespace vqreg
