// Tells when a file is replaced or written, by a descriptor that an event loop can wait for.
#ifndef PORTABLE_FILENEWS_H
#define PORTABLE_FILENEWS_H

#include <string>

namespace VQRegLib {

// Watches the directory, since a file that is replaced is another one afterwards. So the descriptor
// becomes readable for its other files, too, and `take` tells them apart.
class CFileNews {
public:
    CFileNews() = default;
    ~CFileNews() { close(); }
    CFileNews(const CFileNews&) = delete;
    CFileNews& operator=(const CFileNews&) = delete;

    // 0 or an errno: a user may have only so many of these.
    [[nodiscard]] int open(const std::string& path);
    void close();

    int descriptor() const { return m_fd; }

    // The directory has gone or been replaced, and what is in its place cannot be watched yet: `take` tries.
    bool isBlind() const { return m_watch < 0; }

    // Whether there was any news of the file since the last call, as far as can be told; that a directory
    // above its own was replaced makes the descriptor readable for nobody, and is found here. The descriptor
    // is quiet afterwards. Never waits.
    [[nodiscard]] bool take();

    // What was taken could not be made use of: makes the descriptor readable, and it is news again.
    void tellAgain();

private:
    [[nodiscard]] int watchDirectory();
    [[nodiscard]] bool followPath();
    bool isBegun() const;

    int m_fd = -1;
    int m_watch = -1;       // the kernel's number of what is watched
    bool m_isMade = false;  // the file; nothing but of its mode was told since
    std::string m_path;
    std::string m_name;  // in its directory
};

}  // namespace VQRegLib

#endif  // PORTABLE_FILENEWS_H
