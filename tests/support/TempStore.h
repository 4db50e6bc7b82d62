// A place for one store that leaves nothing behind.
#ifndef VQTEST_TEMP_STORE_H
#define VQTEST_TEMP_STORE_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vqtest {

/// A new directory, below /tmp or another one, and the path of a store in it; nothing is in the directory yet. The
/// destructor removes the directory with all that is in it, and the system objects of the stores
/// that were in it. Destroy it after the last session.
class TempStore {
public:
    explicit TempStore(const std::string& below = "/tmp");
    ~TempStore();
    TempStore(const TempStore&) = delete;
    TempStore& operator=(const TempStore&) = delete;

    const std::string& directory() const { return m_directory; }
    std::string path() const;        ///< of the store
    std::string backupPath() const;  ///< of the store's backup

    /// The content of a file. @throws std::runtime_error when it cannot be read
    std::string read() const;
    std::string readBackup() const;

    /// Writes the store's file in place: it keeps its inode when it exists.
    void write(const std::string& text) const;

    bool exists() const;
    bool backupExists() const;

    /// The names in the directory, sorted.
    std::vector<std::string> files() const;

    /// The names of the system objects in /dev/shm that belong to the directory, sorted.
    std::vector<std::string> sharedObjects() const;

    /// Whether the kernel gives the lock of each of them to who asks for it.
    bool isUnlocked() const;

    /// Of the store's file. @throws std::system_error when it is missing
    ino_t inode() const;
    std::int64_t mtime() const;  ///< in nanoseconds

private:
    std::string m_directory;
};

/// A path as it occurs in the names of system objects: "%" as "%25" and "/" as "%2F".
std::string encodedPath(const std::string& path);

/// The content of a file. @throws std::runtime_error when it cannot be read
std::string readFile(const std::string& path);

}  // namespace vqtest

#endif  // VQTEST_TEMP_STORE_H
