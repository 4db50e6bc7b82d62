// What kind of file system a file is on.
#ifndef PORTABLE_FILESYSTEM_H
#define PORTABLE_FILESYSTEM_H

#include <string>

namespace VQRegLib {

// The name of the file system that a file is on, or will be on, when other machines may have it mounted
// as well: "nfs" for example. Null for one of this machine alone, and where it cannot be told. "fuse"
// counts: a program serves it, and nobody knows from where.
const char* networkFileSystem(const std::string& path);

}  // namespace VQRegLib

#endif  // PORTABLE_FILESYSTEM_H
