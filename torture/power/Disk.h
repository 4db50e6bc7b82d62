// A disk that loses its power.
//
// What a power cut leaves is what the disk has by then. There is what file systems have not sent to it yet,
// which is lost; what they have sent and it has in its own cache, of which any part may be lost; and what
// they have told it to keep (a flush), which is there. All three are had without a disk: the file system
// that is looked at lies in a file (the disk) on another file system, whose pages in memory are the cache
// of that disk. A flush of the disk is an fsync of that file. The power is cut by the call with which
// file system developers do it (FS_IOC_SHUTDOWN without its log): from one moment to the next nothing of
// the outer file system reaches its own device, which is memory. What was in its pages and not written is
// lost, as in a disk's cache; before the cut a part of it, by lot, is written, none, or all.
//
// What this does not have: a disk that tears a sector, tells a flush to be done that is not, or is wrong
// in itself. In all but name the outer file system is the disk, and is as good as ext4 is.
#ifndef VQTORTURE_POWER_DISK_H
#define VQTORTURE_POWER_DISK_H

#include <memory>
#include <optional>
#include <string>

#include "power/Mount.h"
#include "support/Torture.h"

namespace vqtorture {

/// What is looked at.
struct FileSystem {
    const char* type;
    const char* options;  ///< of its mount
    const char* maker;    ///< the program that makes one, and its options
    unsigned megabytes;
};

class Disk {
public:
    /// With an empty file system. @throws CannotRun where it cannot be had
    Disk(Run& run, const FileSystem& fileSystem);

    /// Where it is mounted.
    const std::string& directory() const { return m_directory; }

    void cutPower();

    /// Ends every use of it, and mounts it again as a machine does that starts. @throws Violation when
    /// it cannot be mounted
    void start();

private:
    void writeAPartOfTheCache();

    Run& m_run;
    const FileSystem m_fileSystem;
    const std::string m_outerImage;
    const std::string m_outerDirectory;
    const std::string m_image;
    const std::string m_directory;
    std::optional<Mount> m_outer;
    std::optional<Mount> m_inner;
};

}  // namespace vqtorture

#endif  // VQTORTURE_POWER_DISK_H
