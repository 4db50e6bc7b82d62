// What stands in the way of who wants to use a file.
#ifndef PORTABLE_FILEPLACE_H
#define PORTABLE_FILEPLACE_H

#include <string>

namespace VQRegLib {

enum class eFilePlace {
    eFine,               // the file can be read, or it is missing and can be made
    eNoDirectory,        // its directory is missing
    eNoSuchDirectory,    // something else is in the directory's place
    eClosedDirectory,    // the directory may not be entered
    eReadOnlyDirectory,  // the file is missing, and the directory may not be written
    eNoFile,             // something else is in the file's place, a symbolic link for example
    eClosedFile,         // the file may not be read
    eNoPath              // the system cannot follow the path: `errno` says why
};

// For the effective user. `path` is not followed where it is a symbolic link.
eFilePlace filePlace(const std::string& path);

}  // namespace VQRegLib

#endif  // PORTABLE_FILEPLACE_H
