// The system calls of the store's file, each as careful as it can be on its own. The paths lie in
// directories that others may write, and at the end of one there may be anything: a FIFO that nobody writes
// to, a device, a link to somebody's private file. So files are opened without following a link at the end,
// without waiting, and are regular or refused; a mode is set on what is open, or by name without following
// a link.
//
// errno is the answer beside the result: callers read it at once, and what is done on the way out of a
// failure keeps it.
#include "portable/FileOps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <string>
#include <string_view>

#include "portable/FileDescriptor.h"
#include "portable/FileSync.h"

namespace VQRegLib {

namespace {

std::atomic<CFileOps*> g_pReplacement{nullptr};

bool hasRoom(int fd, std::uint64_t size) {
    struct statvfs room {};
    if (fstatvfs(fd, &room) != 0 || room.f_blocks == 0 || room.f_frsize == 0) {
        return true;  // a file system that does not say how large it is
    }
    const std::uint64_t blocks = size / room.f_frsize;
    return blocks < room.f_bavail || (blocks < room.f_bfree && geteuid() == 0);
}

COpenFile failWith(int fd, int error) {
    ::close(fd);
    errno = error;
    return {};
}

constexpr mode_t kModeForAll = 0666;
constexpr mode_t kModeBits = 07777;

// False with errno for anything else.
bool isRegular(const struct stat& status) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return S_ISREG(status.st_mode);
}

bool isRegular(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && isRegular(status);
}

bool isForAll(mode_t mode) {
    return (mode & kModeBits) == kModeForAll;
}

// fchmodat2, which does not follow a link; the C library may be older than the kernel.
int changeMode(const char* path, mode_t mode) {
#if defined(SYS_fchmodat2)
    constexpr long kNumber = SYS_fchmodat2;
#elif defined(__alpha__)
    constexpr long kNumber = 562;
#else
    constexpr long kNumber = 452;
#endif
    return static_cast<int>(::syscall(kNumber, AT_FDCWD, path, mode, AT_SYMLINK_NOFOLLOW));
}

// The descriptor of O_PATH can be had without any permission on the file, waits for nobody and does
// nothing to it, a device for example; its mode can be set only through the name that /proc has for it.
int changeModeThroughProc(const char* path, mode_t mode) {
    const CFileDescriptor file(::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!file.isOpen() || !isRegular(file.get())) {
        return -1;
    }
    const std::string self = "/proc/self/fd/" + std::to_string(file.get());
    return ::chmod(self.c_str(), mode);
}

// Nobody may be waited for at a FIFO; a file that a file server has lent out is worth the wait.
int openWithoutWaiting(const char* path) {
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW;
    const int fd = ::open(path, kFlags | O_NONBLOCK);
    struct stat status {};
    if (fd < 0 && errno == EWOULDBLOCK && ::lstat(path, &status) == 0 && S_ISREG(status.st_mode)) {
        return ::open(path, kFlags);
    }
    return fd;
}

// What one system call takes of a list of pieces.
class CBatch {
public:
    // From the list, after so many bytes of its first piece.
    CBatch(std::span<const std::string_view> pieces, std::size_t done) {
        for (const std::string_view piece : pieces.first(std::min(pieces.size(), kMost))) {
            const std::string_view rest = piece.substr(done);
            m_parts[m_count++] = {const_cast<char*>(rest.data()), rest.size()};
            m_size += rest.size();
            done = 0;
        }
    }

    // -1 with errno when nothing could be written.
    ssize_t write(int fd) const {
        if (m_size == 0) {
            return 0;
        }
        ssize_t written = -1;
        do {
            written = ::writev(fd, m_parts, m_count);
        } while (written < 0 && errno == EINTR);
        if (written == 0) {
            errno = EIO;
        }
        return written > 0 ? written : -1;
    }

private:
    static constexpr std::size_t kMost = 64;  // of a thread's stack, which may be small
    iovec m_parts[kMost];
    int m_count = 0;
    std::size_t m_size = 0;
};

// Takes so many bytes off the beginning of a list: whole pieces, and `done` bytes of the next.
void advance(std::span<const std::string_view>& pieces, std::size_t& done, std::size_t bytes) {
    bytes += done;
    while (!pieces.empty() && bytes >= pieces.front().size()) {
        bytes -= pieces.front().size();
        pieces = pieces.subspan(1);
    }
    done = bytes;
}

}  // namespace

CFileOps& CFileOps::current() {
    // Never destroyed: threads of the library may still use it while the process exits.
    static CFileOps* const system = new CFileOps;
    CFileOps* const replacement = g_pReplacement.load(std::memory_order_acquire);
    return replacement ? *replacement : *system;
}

void CFileOps::replace(CFileOps* fileOps) {
    g_pReplacement.store(fileOps, std::memory_order_release);
}

COpenFile CFileOps::openForReading(const char* path) {
    const int fd = openWithoutWaiting(path);
    if (fd < 0) {
        return {};
    }
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !isRegular(status)) {
        return failWith(fd, errno);
    }
    return {fd, status};
}

COpenFile CFileOps::createForWriting(const char* path, std::uint64_t size) {
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kModeForAll);
    if (fd < 0) {
        return {};
    }
    if (!hasRoom(fd, size)) {
        ::unlink(path);
        return failWith(fd, ENOSPC);
    }
    return {fd, {}};
}

// Where the system gives less than it was asked for, and what it has given is as much as there was when the
// file was opened, the text has ended: nobody has to ask once more. Some file systems tell a size that is
// none; there it ends where there is nothing left.
std::size_t CFileOps::read(void* buffer, std::size_t size, COpenFile& file) {
    errno = 0;
    std::size_t total = 0;
    while (total < size) {
        const ssize_t got =
            ::read(file.descriptor(), static_cast<char*>(buffer) + total, size - total);
        if (got < 0 && errno == EINTR) {
            errno = 0;
            continue;
        }
        if (got <= 0) {
            break;
        }
        total += static_cast<std::size_t>(got);
        file.advance(static_cast<std::size_t>(got));
        if (total < size && file.position() == file.size()) {
            break;
        }
    }
    return total;
}

std::size_t CFileOps::writePieces(std::span<const std::string_view> pieces, const COpenFile& file) {
    std::size_t total = 0;
    std::size_t done = 0;
    while (!pieces.empty()) {
        const ssize_t written = CBatch(pieces, done).write(file.descriptor());
        if (written < 0) {
            break;
        }
        total += static_cast<std::size_t>(written);
        advance(pieces, done, static_cast<std::size_t>(written));
    }
    return total;
}

int CFileOps::close(COpenFile file) {
    return file.close();
}

// The name is looked up twice. Whoever may exchange what it means in between cannot gain by it: he can
// put a file there as well, and a device only where he may make devices. Kernels before 6.6 do not know
// the call, and a sandbox may forbid what it does not know.
int CFileOps::makeWritableForAll(const char* path, bool* holdsText) {
    struct stat status {};
    if (::lstat(path, &status) != 0 || !isRegular(status)) {
        return -1;
    }
    if (holdsText) {
        *holdsText = status.st_size > 0;
    }
    if (isForAll(status.st_mode) || changeMode(path, kModeForAll) == 0) {
        return 0;
    }
    return errno == ENOSYS || errno == EPERM ? changeModeThroughProc(path, kModeForAll) : -1;
}

int CFileOps::makeWritableForAll(const COpenFile& file) {
    return isForAll(file.mode()) ? 0 : ::fchmod(file.descriptor(), kModeForAll);
}

int CFileOps::unlink(const char* path) {
    return ::unlink(path);
}

int CFileOps::link(const char* path, const char* newPath) {
    return ::link(path, newPath);
}

int CFileOps::rename(const char* path, const char* newPath) {
    return ::rename(path, newPath);
}

int CFileOps::exchange(const char* path, const char* other) {
    return ::renameat2(AT_FDCWD, path, AT_FDCWD, other, RENAME_EXCHANGE);
}

int CFileOps::sendOut(const COpenFile& file) {
    return sendData(file.descriptor());
}

int CFileOps::syncData(const COpenFile& file) {
    return syncDescriptor(file.descriptor());
}

int CFileOps::syncNames(const char* path) {
    return syncDirectoryOf(path);
}

int CFileOps::copySynced(const char* path, const char* newPath) {
    return copyToDisk(path, newPath);
}

bool CFileOps::hasLineBeside(const char* path, char beginning) const {
    const CFileDescriptor file(openWithoutWaiting(path));
    if (!file.isOpen() || !isRegular(file.get())) {
        return false;
    }
    char block[4096];
    bool isAtBeginning = true;
    for (ssize_t size = 0; (size = ::read(file.get(), block, sizeof block)) > 0;) {
        for (const char c : std::string_view(block, static_cast<std::size_t>(size))) {
            if (isAtBeginning && c != beginning) {
                return true;
            }
            isAtBeginning = c == '\n';
        }
    }
    return false;
}

void CFileOps::readModificationTime(const char* path, std::time_t& seconds) const {
    struct stat status {};
    if (::stat(path, &status) == 0) {
        seconds = status.st_mtime;
    }
}

std::size_t CFileOps::sizeOf(const COpenFile& file) const {
    struct stat status {};
    if (file.position() <= file.size() || ::fstat(file.descriptor(), &status) != 0) {
        return file.size();
    }
    return static_cast<std::size_t>(status.st_size);
}

bool CFileOps::holdsText(const char* path) const {
    struct stat status {};
    return ::lstat(path, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
}

bool CFileOps::exists(const char* path) {
    struct stat status {};
    return ::stat(path, &status) == 0;
}

}  // namespace VQRegLib
