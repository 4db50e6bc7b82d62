// An open file, and what was seen of it when it was opened.
#ifndef PORTABLE_OPENFILE_H
#define PORTABLE_OPENFILE_H

#include <sys/stat.h>

#include <cstddef>

#include "portable/FileDescriptor.h"

namespace VQRegLib {

// Owns the descriptor. What has to know whether the closing succeeded closes it before.
class COpenFile {
public:
    COpenFile() = default;  // none
    COpenFile(int fd, const struct stat& status);
    ~COpenFile();
    COpenFile(COpenFile&& other) noexcept;
    COpenFile& operator=(COpenFile&& other) noexcept;

    explicit operator bool() const { return m_descriptor.isOpen(); }
    int descriptor() const { return m_descriptor.get(); }
    mode_t mode() const { return m_mode; }
    std::size_t size() const { return m_size; }  // in bytes

    // How much has been read of it since its beginning.
    std::size_t position() const { return m_position; }
    void advance(std::size_t bytes) { m_position += bytes; }
    void rewind();

    // 0, or -1 with errno: the descriptor is gone in any case.
    [[nodiscard]] int close();

private:
    CFileDescriptor m_descriptor{-1};
    mode_t m_mode = 0;
    std::size_t m_size = 0;
    std::size_t m_position = 0;
};

}  // namespace VQRegLib

#endif  // PORTABLE_OPENFILE_H
