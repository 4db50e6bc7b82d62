#include "tools/vqreg/store/ChangeSource.h"

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

// An empty pipe of events; only that there were some matters.
void drainOne(int fd) {
    alignas(inotify_event) char buffer[4096];
    while (::read(fd, buffer, sizeof buffer) > 0) {
    }
}

}  // namespace

void raiseEvent(int fd) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof one);
}

int checkedDescriptor(int fd, const char* what) {
    if (fd < 0) {
        throw CommandError(eExit::eUnavailable, fmt::format("{}: {}", what, std::strerror(errno)));
    }
    return fd;
}

void ChangeSource::Handler::OnRegistryChange() {
    raiseEvent(m_fd);
}

ChangeSource::ChangeSource(VQRegLib::CRegLib& session, const std::string& file)
    : m_session(session),
      m_notified(checkedDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      m_directory(checkedDescriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK), "inotify")),
      m_handler(m_notified.get()) {
    const std::string directory = std::filesystem::path(file).parent_path().string();
    checkedDescriptor(::inotify_add_watch(m_directory.get(), directory.c_str(),
                                          IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE),
                      directory.c_str());
    m_session.SetRegistryChangeHandler(&m_handler);
}

ChangeSource::~ChangeSource() {
    m_session.ClrRegistryChangeHandler(&m_handler);
}

std::array<pollfd, 2> ChangeSource::descriptors() const {
    return {pollfd{m_notified.get(), POLLIN, 0}, pollfd{m_directory.get(), POLLIN, 0}};
}

void ChangeSource::drain() {
    drainOne(m_notified.get());
    drainOne(m_directory.get());
}

}  // namespace vqreg
