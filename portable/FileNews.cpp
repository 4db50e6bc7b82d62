#include "portable/FileNews.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "portable/PathParts.h"

namespace VQRegLib {

namespace {

// A new text comes by a rename, an exchange or a link; by hand perhaps by writing.
constexpr std::uint32_t kWanted =
    IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE | IN_CLOSE_WRITE | IN_ONLYDIR;

}  // namespace

int CFileNews::open(const std::string& path) {
    close();
    m_name = path.substr(path.rfind('/') + 1);  // all of a bare name
    m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0) {
        return errno;
    }
    if (::inotify_add_watch(m_fd, directoryOfPath(path).c_str(), kWanted) < 0) {
        const int error = errno;
        close();
        return error;
    }
    return 0;
}

void CFileNews::close() {
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

// When there were more events than the kernel keeps, any of them may have been about the file.
bool CFileNews::take() {
    alignas(inotify_event) char buffer[4096];
    bool isNews = false;
    ssize_t size = 0;
    while ((size = ::read(m_fd, buffer, sizeof buffer)) > 0) {
        for (const char* at = buffer; at < buffer + size;) {
            inotify_event event{};
            std::memcpy(&event, at, sizeof event);
            const bool isLost = (event.mask & IN_Q_OVERFLOW) != 0;
            isNews = isNews || isLost || (event.len != 0 && m_name == at + sizeof event);
            at += sizeof event + event.len;
        }
    }
    return isNews;
}

}  // namespace VQRegLib
