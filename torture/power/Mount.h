// File systems in files.
#ifndef VQTORTURE_POWER_MOUNT_H
#define VQTORTURE_POWER_MOUNT_H

#include <string>

namespace vqtorture {

/// A file mounted as a file system, from its construction to its destruction. Nothing of it is left behind
/// when the process is killed: the mount goes with the private namespace, and the loop device, which
/// clears itself, with the mount.
class Mount {
public:
    /// @throws CannotRun when the system does not let us
    Mount(const std::string& image, std::string directory, const std::string& type,
          const std::string& options);
    ~Mount();
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

    const std::string& directory() const { return m_directory; }

private:
    std::string m_directory;
};

/// Runs a program, quietly. @throws CannotRun when it is not there or fails
void runProgram(const std::string& command);

/// Makes a file that has its room. @throws CannotRun when there is none
void makeImage(const std::string& path, unsigned megabytes);

}  // namespace vqtorture

#endif  // VQTORTURE_POWER_MOUNT_H
