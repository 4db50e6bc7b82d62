#include "portable/FilePlace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "portable/PathParts.h"

namespace VQRegLib {

namespace {

bool may(const std::string& path, int mode) {
    return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

}  // namespace

eFilePlace filePlace(const std::string& path) {
    const std::string directory = directoryOfPath(path);
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        return errno == EACCES                       ? eFilePlace::eClosedDirectory
               : errno == ENOENT || errno == ENOTDIR ? eFilePlace::eNoDirectory
                                                     : eFilePlace::eNoPath;
    }
    if (!S_ISDIR(status.st_mode)) {
        return eFilePlace::eNoSuchDirectory;
    }
    if (!may(directory, X_OK)) {
        return eFilePlace::eClosedDirectory;
    }
    if (::lstat(path.c_str(), &status) != 0) {
        return errno != ENOENT        ? eFilePlace::eNoPath
               : may(directory, W_OK) ? eFilePlace::eFine
                                      : eFilePlace::eReadOnlyDirectory;
    }
    if (!S_ISREG(status.st_mode)) {
        return eFilePlace::eNoFile;
    }
    return may(path, R_OK) ? eFilePlace::eFine : eFilePlace::eClosedFile;
}

}  // namespace VQRegLib
