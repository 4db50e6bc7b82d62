// Which file it is, and in which state.
#ifndef TOOLS_VQREG_BASE_FILEIDENTITY_H
#define TOOLS_VQREG_BASE_FILEIDENTITY_H

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

namespace vqreg {

// Equal while a path has the same file and nobody has written to it. The time is there for numbers of
// files that are used again, too.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;

    bool operator==(const FileIdentity&) const = default;

    // None when there is no such file.
    static std::optional<FileIdentity> of(const std::string& path) {
        struct stat status {};
        return from(status, ::stat(path.c_str(), &status));
    }
    static std::optional<FileIdentity> of(int fd) {
        struct stat status {};
        return from(status, ::fstat(fd, &status));
    }

private:
    static std::optional<FileIdentity> from(const struct stat& status, int result) {
        if (result != 0) {
            return std::nullopt;
        }
        return FileIdentity{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                            status.st_mtim.tv_nsec};
    }
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_FILEIDENTITY_H
