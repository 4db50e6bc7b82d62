// A file descriptor for the length of a scope.
#ifndef TOOLS_VQREG_FILEHANDLE_H
#define TOOLS_VQREG_FILEHANDLE_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace vqreg {

class FileHandle {
public:
    explicit FileHandle(int fd) : m_fd(fd) {}
    ~FileHandle() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    bool isOpen() const { return m_fd >= 0; }
    int get() const { return m_fd; }

private:
    const int m_fd;
};

// False, with errno, when not everything could be written.
inline bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = ::write(fd, text.data(), text.size());
        if (size < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(size < 0 ? 0 : static_cast<std::size_t>(size));
    }
    return true;
}

}  // namespace vqreg

#endif  // TOOLS_VQREG_FILEHANDLE_H
