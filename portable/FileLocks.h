// Who holds the file locks of the machine, as the kernel tells it.
#ifndef PORTABLE_FILELOCKS_H
#define PORTABLE_FILELOCKS_H

#include <sys/types.h>

#include <cstdint>

namespace VQRegLib {

// The process that has taken flock's exclusive lock on a file, as the caller's pid namespace numbers
// it; 0 when nobody has, -1 when it cannot be told: the process is of a namespace out of sight.
std::int32_t holderOfFileLock(dev_t device, ino_t inode);

}  // namespace VQRegLib

#endif  // PORTABLE_FILELOCKS_H
