// Bringing files and their names to the disk, so that they outlast a power cut.
#ifndef PORTABLE_FILESYNC_H
#define PORTABLE_FILESYNC_H

namespace VQRegLib {

// Each of these waits for the disk, the first one for less. 0, or -1 with errno.

// The data of a file have been sent to the disk, which may have them in a cache of its own: what the file
// system writes later, names for example, is not on the disk before them. Not all systems can tell.
[[nodiscard]] int sendData(int fd);

// The data of a file, and what it takes to find them again.
[[nodiscard]] int syncDescriptor(int fd);

// The names in the directory in which the path lies. File systems that know no such thing do without.
[[nodiscard]] int syncDirectoryOf(const char* path);

// Copies a regular file to a new one and brings that to the disk. Leaves no file where it fails.
[[nodiscard]] int copyToDisk(const char* path, const char* newPath);

}  // namespace VQRegLib

#endif  // PORTABLE_FILESYNC_H
