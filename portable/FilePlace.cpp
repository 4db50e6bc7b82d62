#include "portable/FilePlace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VQRegLib {

namespace {

bool may(const std::string& path, int mode) {
    return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

}  // namespace

std::string directoryOfFile(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

eFilePlace filePlace(const std::string& path) {
    const std::string directory = directoryOfFile(path);
    struct stat status {};
    // Without the "/" at its end, which would lead into it.
    if (::stat(directory.substr(0, directory.size() - (directory.size() > 1)).c_str(), &status) !=
        0) {
        return eFilePlace::eNoDirectory;
    }
    if (!S_ISDIR(status.st_mode)) {
        return eFilePlace::eNoSuchDirectory;
    }
    if (!may(directory, X_OK)) {
        return eFilePlace::eClosedDirectory;
    }
    if (::lstat(path.c_str(), &status) != 0) {
        return may(directory, W_OK) ? eFilePlace::eFine : eFilePlace::eReadOnlyDirectory;
    }
    if (!S_ISREG(status.st_mode)) {
        return eFilePlace::eNoFile;
    }
    return may(path, R_OK) ? eFilePlace::eFine : eFilePlace::eClosedFile;
}

}  // namespace VQRegLib
