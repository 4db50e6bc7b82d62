// Owns a file descriptor.
#ifndef PORTABLE_FILEDESCRIPTOR_H
#define PORTABLE_FILEDESCRIPTOR_H

#include <unistd.h>

#include <utility>

#include "portable/NoCancellation.h"

namespace VQRegLib {

class CFileDescriptor {
public:
    explicit CFileDescriptor(int fd) : m_fd(fd) {}
    ~CFileDescriptor() {
        if (m_fd >= 0) {
            const CNoCancellation noCancellation;  // no thread can end in a destructor
            ::close(m_fd);
        }
    }
    CFileDescriptor(CFileDescriptor&& other) noexcept : m_fd(other.release()) {}
    CFileDescriptor& operator=(CFileDescriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }

    int get() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }
    [[nodiscard]] int release() { return std::exchange(m_fd, -1); }

private:
    int m_fd;
};

}  // namespace VQRegLib

#endif  // PORTABLE_FILEDESCRIPTOR_H
