// A descriptor that is kept for years in a program of somebody else. Three things may happen to it: the
// program closes it, with all its descriptors, and the number becomes another file; somebody removes the
// name, and others make a new file of it; somebody moves the file away. The first two show in one fstat (other
// inode; no links). The third one does not, and takes a look at the name, which is made once a second.
#include "portable/SharedFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "portable/FileDescriptor.h"
#include "portable/ObjectName.h"
#include "portable/Portable.h"

namespace VQRegLib {

namespace {

constexpr int kAttempts = 100;  // a name may come and go while it is being opened
constexpr mode_t kWritable = 0222;

// Objects are open to everybody. A file that is not, and has another name as well, is a stranger's: where
// fs.protected_hardlinks is off anybody may have given it this name, for others to write into it.
bool isStrangersLinked(const struct stat& status) {
    return status.st_nlink > 1 && (status.st_mode & kWritable) != kWritable;
}

}  // namespace

int CSharedFile::open(const std::string& name, std::size_t size) {
    close();
    m_path = objectFile(name);
    int error = 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Without O_CREAT first: a directory like this one may refuse O_CREAT on a file of another
        // user even to root.
        error = openExisting();
        if (error != ENOENT) {
            return error;
        }
        error = create(size);
        if (error != 0 && error != EEXIST) {
            return error;
        }
    }
    return error;
}

int CSharedFile::make(const std::string& name, std::size_t size) {
    CSharedFile file;
    const int error = file.open(name, size);
    if (error == 0) {
        ::close(std::exchange(file.m_fd, -1));  // nobody can have closed it yet
    }
    return error;
}

int CSharedFile::openExisting() {
    CFileDescriptor file(::open(m_path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    if (isStrangersLinked(status)) {
        return EMLINK;
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
    m_changeTime = status.st_ctim;
    m_lastLook = CPortable::GetSecondShown();
    m_fd = file.release();
    return 0;
}

// Finished first and named then: nobody sees an unfinished one, whoever is killed when.
int CSharedFile::create(std::size_t size) const {
    const CFileDescriptor file(::open(kObjectDirectory, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file.isOpen()) {
        return errno;
    }
    if (const int error = reserve(file.get(), size)) {
        return error;
    }
    return ::fchmod(file.get(), 0666) == 0 ? giveName(file.get(), m_path) : errno;
}

int CSharedFile::reserve(int fd, std::size_t size) {
    int error = 0;
    do {
        error = ::posix_fallocate(fd, 0, static_cast<off_t>(size));
    } while (error == EINTR);
    return error;
}

int CSharedFile::giveName(int fd, const std::string& path) {
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        return 0;
    }
    // No /proc here; a privileged process can do without it.
    if (errno == ENOENT && ::linkat(fd, "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0) {
        return 0;
    }
    return errno;
}

long CSharedFile::userOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? static_cast<long>(status.st_uid) : -1;
}

void CSharedFile::keep(int fd, const std::string& path) {
    close();
    m_path = path;
    CFileDescriptor copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    struct stat status {};
    if (copy.isOpen() && ::fstat(copy.get(), &status) == 0) {
        m_device = status.st_dev;
        m_inode = status.st_ino;
        m_fd = copy.release();
    }
}

void CSharedFile::close() {
    if (isOurs()) {
        ::close(m_fd);
    }
    m_fd = -1;
}

bool CSharedFile::isOurs() const {
    struct stat status {};
    return isOurs(status);
}

bool CSharedFile::isOurs(struct stat& status) const {
    return m_fd >= 0 && ::fstat(m_fd, &status) == 0 && status.st_dev == m_device &&
           status.st_ino == m_inode;
}

bool CSharedFile::isInPlace() {
    struct stat status {};
    if (!isOurs(status) || status.st_nlink == 0) {
        return false;
    }
    const std::uint32_t now = CPortable::GetSecondShown();
    if ((now != m_lastLook || status.st_nlink != 1) && !isNamed()) {
        return false;
    }
    m_lastLook = now;
    m_changeTime = status.st_ctim;
    return true;
}

bool CSharedFile::isNamed() const {
    struct stat status {};
    return ::lstat(m_path.c_str(), &status) == 0 && status.st_dev == m_device &&
           status.st_ino == m_inode;
}

}  // namespace VQRegLib
