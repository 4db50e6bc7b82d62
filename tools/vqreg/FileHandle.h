// Closes a file descriptor at the end of a scope.
#ifndef TOOLS_VQREG_FILEHANDLE_H
#define TOOLS_VQREG_FILEHANDLE_H

#include <unistd.h>

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

}  // namespace vqreg

#endif  // TOOLS_VQREG_FILEHANDLE_H
