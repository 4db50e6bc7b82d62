#include "portable/FileNews.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "portable/NoCancellation.h"
#include "portable/PathParts.h"

namespace VQRegLib {

namespace {

// A new text comes by a rename, an exchange or a link; by hand perhaps by writing. That nobody might read it is
// over with a change of its mode. What is wanted is added where the directory is watched already: the kernel
// puts a mask in the place of another one in two steps, and what happens between them it tells nobody.
constexpr std::uint32_t kWanted = IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE |
                                  IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF |
                                  IN_ONLYDIR | IN_MASK_ADD;

// Another directory may have the path now.
constexpr std::uint32_t kDirectoryLost = IN_MOVE_SELF | IN_DELETE_SELF | IN_IGNORED | IN_UNMOUNT;

}  // namespace

int CFileNews::open(const std::string& path) {
    close();
    m_path = path;
    m_name = path.substr(path.rfind('/') + 1);  // all of a bare name
    m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0) {
        return errno;
    }
    const int error = watchDirectory();
    if (error != 0) {
        close();
    }
    return error;
}

int CFileNews::watchDirectory() {
    m_watch = ::inotify_add_watch(m_fd, directoryOfPath(m_path).c_str(), kWanted);
    return m_watch < 0 ? errno : 0;
}

// When one above it is replaced, nobody tells. The kernel gives a directory that is watched already the same
// number again. Where that is refused now, the directory may still be the one that was watched.
bool CFileNews::followPath() {
    const int before = m_watch;
    const int error = watchDirectory();
    if (m_watch == before) {
        return false;
    }
    if (error != 0 && error != ENOENT && error != ENOTDIR) {
        m_watch = before;
        return false;
    }
    if (before >= 0) {
        (void)::inotify_rm_watch(m_fd, before);  // it has gone, or is another path's
    }
    return m_watch >= 0;
}

void CFileNews::close() {
    if (m_fd >= 0) {
        const CNoCancellation noCancellation;  // the destructor calls this
        ::close(m_fd);
        m_fd = -1;
    }
    m_watch = -1;
}

// Somebody has made the file just now and is about to write it, the end of which is news. What comes by a link
// is whole.
bool CFileNews::isBegun() const {
    struct stat status {};
    return m_isMade && ::stat(m_path.c_str(), &status) == 0 && status.st_size == 0;
}

// When there were more events than the kernel keeps, any of them may have been about the file.
bool CFileNews::take() {
    alignas(inotify_event) char buffer[4096];
    bool isNews = followPath();  // first: what it drops is told of as well
    ssize_t size = 0;
    while ((size = ::read(m_fd, buffer, sizeof buffer)) > 0) {
        for (const char* at = buffer; at < buffer + size;) {
            inotify_event event{};
            std::memcpy(&event, at, sizeof event);
            const bool isOverflow = (event.mask & IN_Q_OVERFLOW) != 0;
            const bool isOfFile = event.len != 0 && m_name == at + sizeof event;
            isNews = isNews || isOverflow || isOfFile;
            if (isOfFile) {
                m_isMade =
                    (event.mask & IN_CREATE) != 0 || (m_isMade && (event.mask & IN_ATTRIB) != 0);
            }
            if (event.wd == m_watch && (event.mask & kDirectoryLost) != 0) {
                (void)::inotify_rm_watch(m_fd, m_watch);  // of one that has moved
                m_watch = -1;
            }
            at += sizeof event + event.len;
        }
    }
    if (m_watch < 0 && watchDirectory() == 0) {
        isNews = true;
    }
    return isNews && !isBegun();
}

// The kernel tells of the end of a watch, after which the next take begins another one.
void CFileNews::tellAgain() {
    (void)::inotify_rm_watch(m_fd, m_watch);  // without one it takes another try anyhow
}

}  // namespace VQRegLib
