// What a process asks of the disk, for one process: preloaded, it writes down the calls that bring texts
// and names to the disk or give a file its name, a line each, in VQREG_TEST_CALLS, and lets those fail with
// EIO that VQREG_TEST_FAILING names.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string lastName(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

std::string nameOf(int fd) {
    char text[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t size = ::readlink(link.c_str(), text, sizeof text - 1);
    return lastName(std::string(text, size > 0 ? static_cast<std::size_t>(size) : 0).c_str());
}

// True when it is to fail.
bool note(const char* call, const std::string& name) {
    const int error = errno;
    const char* const path = std::getenv("VQREG_TEST_CALLS");
    const int file = path ? ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666) : -1;
    if (file >= 0) {
        const std::string line = std::string(call) + ' ' + name + '\n';
        if (::write(file, line.data(), line.size()) < 0) {
            std::perror(path);
        }
        ::close(file);
    }
    const char* const failing = std::getenv("VQREG_TEST_FAILING");
    errno = error;
    return failing && std::strcmp(failing, call) == 0;
}

int result(bool isFailing, long number, int fd) {
    if (isFailing) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(::syscall(number, fd));
}

}  // namespace

#define VQREG_SEEN extern "C" __attribute__((visibility("default")))

VQREG_SEEN int fdatasync(int fd) {
    return result(note("fdatasync", nameOf(fd)), SYS_fdatasync, fd);
}

VQREG_SEEN int fsync(int fd) {
    return result(note("fsync", nameOf(fd)), SYS_fsync, fd);
}

VQREG_SEEN int rename(const char* path, const char* newPath) noexcept {
    note("rename", lastName(newPath));
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, path, AT_FDCWD, newPath, 0));
}
