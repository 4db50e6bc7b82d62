// A named file that all processes of the machine may open, read, write and lock. It is never mapped:
// whoever may write it could cut it short under the hands of those who look at the mapping.
#ifndef PORTABLE_SHAREDFILE_H
#define PORTABLE_SHAREDFILE_H

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace VQRegLib {

class CSharedFile {
public:
    CSharedFile() = default;
    ~CSharedFile() { close(); }
    CSharedFile(const CSharedFile&) = delete;
    CSharedFile& operator=(const CSharedFile&) = delete;

    // Opens the file of that name, making it of so many zeroes when it is missing. What is no regular
    // file is refused, and so is a link to a file that is not everybody's. 0 or an errno.
    [[nodiscard]] int open(const std::string& name, std::size_t size);

    // Whether that works, without keeping it open.
    [[nodiscard]] static int make(const std::string& name, std::size_t size);

    // Takes over a second descriptor of a file that is open, which its path names or once named. Keeps
    // nothing when there is none to be had.
    void keep(int fd, const std::string& path);

    // Closes it, unless the program has done so and given the number to a file of its own.
    void close();

    bool isOurs() const;   // it is open, and the descriptor is still that of the file
    bool isNamed() const;  // the name still means this file

    // Both at once, and mostly by one look at the descriptor: a file that was removed, or that another
    // one has replaced, has no name any more. That it was moved away is found out by its name,
    // once a second, and each time while it has a second one.
    bool isInPlace();

    // When it was last changed, content or names, as far as isInPlace or open have seen.
    timespec changeTime() const { return m_changeTime; }

    int descriptor() const { return m_fd; }
    dev_t device() const { return m_device; }
    ino_t inode() const { return m_inode; }

    // Whose the file of that path is; -1 when there is none.
    static long userOf(const std::string& path);
    // Gives a file of this kind its size, and the memory for it, whatever signals come meanwhile. 0 or an
    // errno.
    [[nodiscard]] static int reserve(int fd, std::size_t size);

    // Links an unnamed file to its name. 0 or an errno.
    [[nodiscard]] static int giveName(int fd, const std::string& path);

private:
    [[nodiscard]] int openExisting();
    [[nodiscard]] int create(std::size_t size) const;
    bool isOurs(struct stat& status) const;

    std::string m_path;
    int m_fd = -1;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    std::uint32_t m_lastLook = 0;  // at the name
    timespec m_changeTime{};
};

}  // namespace VQRegLib

#endif  // PORTABLE_SHAREDFILE_H
