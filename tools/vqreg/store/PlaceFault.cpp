#include "tools/vqreg/store/PlaceFault.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>

#include "portable/ObjectName.h"
#include "tools/vqreg/base/FileFacts.h"

namespace vqreg {

namespace {

std::optional<CommandError> missingFileFault(const std::string& file) {
    const std::string directory = directoryOf(file);
    if (!may(directory, W_OK)) {
        return unavailable(
            fmt::format("{}: the file does not exist, and {}", file, notWritable(directory)));
    }
    return std::nullopt;
}

}  // namespace

std::string directoryOf(const std::string& file) {
    return std::filesystem::path(file).parent_path().string();
}

bool may(const std::string& path, int mode) {
    return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

std::string notWritable(const std::string& directory) {
    struct statvfs system {};
    if (::statvfs(directory.c_str(), &system) == 0 && (system.f_flag & ST_RDONLY) != 0) {
        return fmt::format("the directory {} is on a read-only file system", directory);
    }
    return fmt::format("the directory {} is not writable ({})", directory, ownerAndMode(directory));
}

std::optional<CommandError> directoryFault(const std::string& file) {
    const std::string directory = directoryOf(file);
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return unavailable(fmt::format("{}: the directory {} does not exist", file, directory));
        }
        return unavailable(
            fmt::format("{}: the directory {}: {}", file, directory, std::strerror(errno)));
    }
    if (!S_ISDIR(status.st_mode)) {
        return unavailable(fmt::format("{}: {} is not a directory", file, directory));
    }
    if (!may(directory, X_OK)) {
        return unavailable(fmt::format("{}: the directory {} may not be entered ({})", file,
                                       directory, ownerAndMode(directory)));
    }
    return std::nullopt;
}

// A link in the place of the file has been followed already, where that may be done.
std::optional<CommandError> fileFault(const std::string& file) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0) {
        return errno == ENOENT ? missingFileFault(file)
                               : unavailable(fmt::format("{}: {}", file, std::strerror(errno)));
    }
    if (!S_ISREG(status.st_mode)) {
        return unavailable(file + ": " + notAFile(status.st_mode));
    }
    if (!may(file, R_OK)) {
        return unavailable(
            fmt::format("{}: the file may not be read ({})", file, ownerAndMode(file)));
    }
    return std::nullopt;
}

std::optional<CommandError> sharedObjectFault(const std::string& file) {
    for (const char* const kind : {VQRegLib::kLockKind, VQRegLib::kBlockKind}) {
        const std::string object = VQRegLib::objectPath(kind, file);
        struct stat status {};
        if (::lstat(object.c_str(), &status) != 0) {
            if (!may(directoryOf(object), W_OK)) {
                return unavailable(fmt::format("{}: {}", file, notWritable(directoryOf(object))));
            }
        } else if (!S_ISREG(status.st_mode) || !may(object, R_OK | W_OK)) {
            return unavailable(fmt::format("{}: the shared object {} may not be used ({})", file,
                                           object, ownerAndMode(object)));
        }
    }
    return std::nullopt;
}

std::optional<CommandError> nameFault(const std::string& file) {
    constexpr std::size_t kAppended = 36;  // what tells the temporary files apart
    constexpr std::size_t kLongest = NAME_MAX - kAppended;
    const std::string name = std::filesystem::path(file).filename();
    if (name.size() <= kLongest) {
        return std::nullopt;
    }
    return unavailable(
        fmt::format("{}: the file's name is too long: it has {} bytes and may have "
                    "{}, because changes are written to one with an appendix",
                    file, name.size(), kLongest));
}

}  // namespace vqreg
