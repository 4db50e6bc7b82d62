// Bringing files and their names to the disk, so that they outlast a power cut.
#ifndef PORTABLE_FILESYNC_H
#define PORTABLE_FILESYNC_H

namespace VQRegLib {

// Each of these waits for the disk. 0, or -1 with errno.

// The data of a file, and what it takes to find them again.
[[nodiscard]] int syncDescriptor(int fd);

// The names in the directory in which the path lies. File systems that know no such thing do without.
[[nodiscard]] int syncDirectoryOf(const char* path);

// Copies a regular file to a new one and brings that to the disk. Leaves no file where it fails.
[[nodiscard]] int copyToDisk(const char* path, const char* newPath);

}  // namespace VQRegLib

#endif  // PORTABLE_FILESYNC_H
