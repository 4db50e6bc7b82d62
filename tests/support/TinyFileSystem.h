// A small file system of its own for tests of a full disk.
#ifndef VQTEST_TINY_FILE_SYSTEM_H
#define VQTEST_TINY_FILE_SYSTEM_H

#include <sys/mount.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>

#include "support/TraceLog.h"

namespace vqtest {

/// Mounts an empty tmpfs on a directory for as long as the object lives. Only in a private root.
class TinyFileSystem {
public:
    /// @param options  as for mount, for example "size=64k"
    TinyFileSystem(std::string directory, const std::string& options)
        : m_directory(std::move(directory)) {
        if (!inPrivateRoot()) {
            throw std::logic_error("tests that mount must run under private_root");
        }
        check(::mount("tmpfs", m_directory.c_str(), "tmpfs", 0, options.c_str()));
    }
    ~TinyFileSystem() { ::umount2(m_directory.c_str(), MNT_DETACH); }
    TinyFileSystem(const TinyFileSystem&) = delete;
    TinyFileSystem& operator=(const TinyFileSystem&) = delete;

    /// Takes all the room that is left with one file.
    void fill(const std::string& name = "filling") const {
        std::ofstream out(m_directory + "/" + name, std::ios::binary);
        const std::string block(4096, 'x');
        while (out.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
        }
    }

    void makeReadOnly() const {
        check(::mount(nullptr, m_directory.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    }

private:
    void check(int result) const {
        if (result != 0) {
            throw std::system_error(errno, std::generic_category(), "mount " + m_directory);
        }
    }

    std::string m_directory;
};

}  // namespace vqtest

#endif  // VQTEST_TINY_FILE_SYSTEM_H
