#include "portable/AppendedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "portable/FileDescriptor.h"

namespace VQRegLib {

namespace {

constexpr mode_t kModeForAll = 0666;

// Nobody may make the processes of other users write elsewhere with a link, or wait with a FIFO; and
// only a file of root's or the caller's is given to everybody, never by its path. Another user's is
// taken when it is open to everybody.
int openShared(const char* path) {
    constexpr int kFlags = O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int descriptor = ::open(path, kFlags);
    if (descriptor < 0 && errno == ENOENT) {
        descriptor = ::open(path, kFlags | O_CREAT, kModeForAll);
    }
    CFileDescriptor file(descriptor);
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        return -1;
    }
    const bool isOurs = status.st_uid == 0 || status.st_uid == ::geteuid();
    const bool isShared = isOurs || (status.st_mode & kModeForAll) == kModeForAll;
    if (!S_ISREG(status.st_mode) || status.st_nlink > 1 || !isShared) {
        return -1;
    }
    if (isOurs) {
        (void)::fchmod(file.get(), kModeForAll);  // root's own, if this is not root
    }
    return file.release();
}

}  // namespace

std::FILE* CAppendedFile::open(const char* path) {
    CFileDescriptor descriptor(openShared(path));
    std::FILE* const file = descriptor.isOpen() ? ::fdopen(descriptor.get(), "a+") : nullptr;
    if (file) {
        (void)descriptor.release();  // the stream's now
        // Nothing waits in the stream: a child of fork, or the next file, would get it too.
        std::setvbuf(file, nullptr, _IONBF, 0);
    }
    return file;
}

void CAppendedFile::remember(std::FILE* file) {
    rememberDescriptor(::fileno(file));
}

void CAppendedFile::rememberDescriptor(int descriptor) {
    struct stat status {};
    ::fstat(descriptor, &status);
    m_device.store(status.st_dev);
    m_inode.store(status.st_ino);
    m_descriptor.store(descriptor);
}

bool CAppendedFile::replaceBy(std::FILE* opened) {
    const int descriptor = m_descriptor.load();
    if (::dup3(::fileno(opened), descriptor, O_CLOEXEC) != descriptor) {
        return false;
    }
    rememberDescriptor(descriptor);
    std::fclose(opened);
    return true;
}

bool CAppendedFile::isThere(int descriptor) const {
    struct stat status {};
    return descriptor == m_descriptor.load() && ::fstat(descriptor, &status) == 0 &&
           status.st_dev == m_device.load() && status.st_ino == m_inode.load();
}

bool CAppendedFile::isThereFor(std::FILE* file) const {
    return isThere(::fileno(file));
}

}  // namespace VQRegLib
