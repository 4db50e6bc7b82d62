#include "tools/vqreg/store/DirectoryEvents.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>

namespace vqreg {

DirectoryEvents::DirectoryEvents(const std::string& file)
    : m_handle(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    const std::string directory = std::filesystem::path(file).parent_path().string();
    ::inotify_add_watch(m_handle.get(), directory.c_str(),
                        IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE);
}

bool DirectoryEvents::takeNews() const {
    alignas(inotify_event) char events[4096];
    bool hasNews = false;
    while (::read(m_handle.get(), events, sizeof events) > 0) {
        hasNews = true;
    }
    return hasNews;
}

void DirectoryEvents::wait(std::chrono::milliseconds limit) const {
    pollfd source = {m_handle.get(), POLLIN, 0};
    if (::poll(&source, 1, static_cast<int>(limit.count())) > 0) {
        takeNews();
    }
}

}  // namespace vqreg
