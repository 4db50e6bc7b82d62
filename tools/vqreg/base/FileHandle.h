// File descriptors: for the length of a scope, and writing to them.
#ifndef TOOLS_VQREG_BASE_FILEHANDLE_H
#define TOOLS_VQREG_BASE_FILEHANDLE_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

#include "portable/FileDescriptor.h"

namespace vqreg {

using FileHandle = VQRegLib::CFileDescriptor;

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

#endif  // TOOLS_VQREG_BASE_FILEHANDLE_H
