// A directory in which nothing can be made.
#ifndef VQTEST_READ_ONLY_DIRECTORY_H
#define VQTEST_READ_ONLY_DIRECTORY_H

#include <sys/mount.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace vqtest {

/// A directory that nobody may write, root included.
class ReadOnlyDirectory {
public:
    explicit ReadOnlyDirectory(std::string path, const char* text = nullptr)
        : m_path(std::move(path)) {
        std::filesystem::create_directory(m_path);
        mountOrThrow(0);
        if (text) {
            std::ofstream(file()) << text;
        }
        mountOrThrow(MS_REMOUNT | MS_RDONLY);
    }
    ~ReadOnlyDirectory() { ::umount2(m_path.c_str(), MNT_DETACH); }
    ReadOnlyDirectory(const ReadOnlyDirectory&) = delete;
    ReadOnlyDirectory& operator=(const ReadOnlyDirectory&) = delete;

    std::string file() const { return m_path + "/store.cfg"; }

private:
    void mountOrThrow(unsigned long flags) const {
        if (::mount("tmpfs", m_path.c_str(), "tmpfs", flags, "size=64k") != 0) {
            throw std::system_error(errno, std::generic_category(), "mount " + m_path);
        }
    }

    const std::string m_path;
};

}  // namespace vqtest

#endif  // VQTEST_READ_ONLY_DIRECTORY_H
