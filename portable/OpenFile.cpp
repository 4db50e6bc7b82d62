#include "portable/OpenFile.h"

#include <unistd.h>

#include "portable/NoCancellation.h"

namespace VQRegLib {

COpenFile::COpenFile(int fd, const struct stat& status)
    : m_descriptor(fd), m_mode(status.st_mode), m_size(static_cast<std::size_t>(status.st_size)) {}

COpenFile::~COpenFile() = default;
COpenFile::COpenFile(COpenFile&& other) noexcept = default;
COpenFile& COpenFile::operator=(COpenFile&& other) noexcept = default;

void COpenFile::rewind() {
    (void)::lseek(m_descriptor.get(), 0, SEEK_SET);  // a regular file
    m_position = 0;
}

int COpenFile::close() {
    const CNoCancellation noCancellation;  // destructors call this
    return ::close(m_descriptor.release());
}

}  // namespace VQRegLib
