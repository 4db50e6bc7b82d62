#include "portable/FileSync.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "portable/FileDescriptor.h"
#include "portable/PathParts.h"

namespace VQRegLib {

namespace {

template <typename Call>
int again(Call&& call) {
    int result = -1;
    do {
        result = call();
    } while (result != 0 && errno == EINTR);
    return result;
}

bool writeBlock(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            errno = written == 0 ? EIO : errno;
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool copyAll(int from, int to) {
    char block[4096];
    for (;;) {
        const ssize_t size = ::read(from, block, sizeof block);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            return size == 0;
        }
        if (!writeBlock(to, block, static_cast<std::size_t>(size))) {
            return false;
        }
    }
}

}  // namespace

// ENOSYS, or what a sandbox answers instead, says nothing about the data; an error of the disk does.
int sendData(int fd) {
    constexpr unsigned kAll =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    const int result = again([fd] { return ::sync_file_range(fd, 0, 0, kAll); });
    const bool isOfTheDisk = errno == EIO || errno == ENOSPC || errno == EDQUOT;
    return result != 0 && isOfTheDisk ? -1 : 0;
}

int syncDescriptor(int fd) {
    return again([fd] { return ::fdatasync(fd); });
}

// A directory that may be written but not read cannot be opened; what it takes then is the whole file
// system. EINVAL is the answer of file systems that have nothing to do for a directory.
int syncDirectoryOf(const char* path) {
    const std::string name = directoryOfPath(path);
    const CFileDescriptor directory(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.isOpen()) {
        const int result = again([&] { return ::fsync(directory.get()); });
        return result != 0 && errno == EINVAL ? 0 : result;
    }
    if (errno != EACCES) {
        return -1;
    }
    const CFileDescriptor file(::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return file.isOpen() ? again([&] { return ::syncfs(file.get()); }) : -1;
}

int copyToDisk(const char* path, const char* newPath) {
    const CFileDescriptor from(::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!from.isOpen() || ::fstat(from.get(), &status) != 0) {
        return -1;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return -1;
    }
    const CFileDescriptor to(::open(newPath, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!to.isOpen()) {
        return -1;
    }
    // Whatever the umask is, as every file of a store.
    if (copyAll(from.get(), to.get()) && ::fchmod(to.get(), 0666) == 0 &&
        syncDescriptor(to.get()) == 0) {
        return 0;
    }
    const int error = errno;
    ::unlink(newPath);
    errno = error;
    return -1;
}

}  // namespace VQRegLib
