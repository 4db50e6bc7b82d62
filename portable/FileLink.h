// Symbolic links in the place of a file.
#ifndef PORTABLE_FILELINK_H
#define PORTABLE_FILELINK_H

#include <string>

namespace VQRegLib {

// The file that a path means: where it is a symbolic link, what that leads to, link after link. Only
// links of root or of the caller are followed: in a directory that others may write, anybody can put
// a link in the place of a file. The result is a link still where one of them is somebody else's, or
// where they go in a circle. What it leads to need not exist.
std::string fileBehindLinks(const std::string& path);

}  // namespace VQRegLib

#endif  // PORTABLE_FILELINK_H
