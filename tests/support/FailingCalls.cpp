#include "support/FailingCalls.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>

namespace vqtest {

namespace {

std::atomic<FailingCall*> g_innermost{nullptr};  // threads of the library look, too

struct Room {
    bool isKnown = false;
    unsigned long forAll = 0;
    unsigned long forRoot = 0;
    unsigned long blockSize = 0;
};
Room g_room;

std::atomic<int> g_handedOn{0};

}  // namespace

FailingCall::FailingCall(const char* function, int error, int skip, int times)
    : m_function(function),
      m_error(error),
      m_skip(skip),
      m_times(times),
      m_outer(g_innermost.exchange(this)) {}

FailingCall::~FailingCall() {
    g_innermost = m_outer;
}

bool FailingCall::fails(const char* function, int& error) {
    for (FailingCall* at = g_innermost; at; at = at->m_outer) {
        if (at->m_function != function || at->m_count == at->m_times) {
            continue;
        }
        if (at->m_skip > 0) {
            --at->m_skip;
            continue;
        }
        ++at->m_count;
        error = at->m_error;
        return true;
    }
    return false;
}

int descriptorsHandedOn() {
    return g_handedOn.load();
}

KnownRoom::KnownRoom(unsigned long forAll, unsigned long forRoot, unsigned long blockSize) {
    g_room = {true, forAll, forRoot, blockSize};
}

KnownRoom::~KnownRoom() {
    g_room = {};
}

}  // namespace vqtest

namespace {

// What a call answers: `failure` and errno, or `done` when nothing is to go wrong.
template <typename Result>
bool answers(const char* function, Result failure, Result done, Result& result) {
    int error = 0;
    const int before = errno;
    if (!vqtest::FailingCall::fails(function, error)) {
        errno = before;
        return false;
    }
    result = error != 0 ? failure : done;
    errno = error != 0 ? error : before;
    return true;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
#define VQ_FAILING(type, name, failure, done, parameters, arguments)                           \
    type __real_##name parameters;                                                             \
    type __wrap_##name parameters;                                                             \
    type __wrap_##name parameters {                                                            \
        type result{};                                                                         \
        return answers<type>(#name, failure, done, result) ? result : __real_##name arguments; \
    }

extern "C" {

VQ_FAILING(int, fstat, -1, 0, (int fd, struct stat* status), (fd, status))
VQ_FAILING(int, lstat, -1, 0, (const char* path, struct stat* status), (path, status))
VQ_FAILING(int, stat, -1, 0, (const char* path, struct stat* status), (path, status))
VQ_FAILING(int, statx, -1, 0,
           (int directory, const char* path, int flags, unsigned int mask, struct statx* status),
           (directory, path, flags, mask, status))
VQ_FAILING(int, fchmod, -1, 0, (int fd, mode_t mode), (fd, mode))
VQ_FAILING(int, linkat, -1, 0, (int from, const char* path, int to, const char* name, int flags),
           (from, path, to, name, flags))
VQ_FAILING(int, flock, -1, 0, (int fd, int operation), (fd, operation))
VQ_FAILING(void*, mmap, MAP_FAILED, MAP_FAILED,
           (void* place, size_t size, int protection, int flags, int fd, off_t offset),
           (place, size, protection, flags, fd, offset))
VQ_FAILING(void*, shmat, reinterpret_cast<void*>(-1), reinterpret_cast<void*>(-1),
           (int id, const void* place, int flags), (id, place, flags))
VQ_FAILING(int, shmget, -1, -1, (key_t key, size_t size, int flags), (key, size, flags))
VQ_FAILING(int, shmctl, -1, 0, (int id, int operation, struct shmid_ds* status),
           (id, operation, status))
VQ_FAILING(ssize_t, pwrite, -1, 0, (int fd, const void* data, size_t size, off_t offset),
           (fd, data, size, offset))
VQ_FAILING(ssize_t, pread, -1, 0, (int fd, void* data, size_t size, off_t offset),
           (fd, data, size, offset))
VQ_FAILING(ssize_t, writev, -1, 0, (int fd, const struct iovec* parts, int count),
           (fd, parts, count))
VQ_FAILING(ssize_t, getrandom, -1, 0, (void* bytes, size_t size, unsigned int flags),
           (bytes, size, flags))
VQ_FAILING(ssize_t, readlink, -1, 0, (const char* path, char* text, size_t size),
           (path, text, size))
VQ_FAILING(ssize_t, readlinkat, -1, 0, (int directory, const char* path, char* text, size_t size),
           (directory, path, text, size))
VQ_FAILING(int, kill, -1, 0, (pid_t pid, int signal), (pid, signal))
VQ_FAILING(int, sem_init, -1, 0, (sem_t * semaphore, int shared, unsigned int value),
           (semaphore, shared, value))
VQ_FAILING(char*, realpath, nullptr, nullptr, (const char* path, char* resolved), (path, resolved))
VQ_FAILING(ssize_t, process_vm_readv, -1, 0,
           (pid_t pid, const struct iovec* here, unsigned long countHere, const struct iovec* there,
            unsigned long countThere, unsigned long flags),
           (pid, here, countHere, there, countThere, flags))
VQ_FAILING(int, clock_gettime, -1, 0, (clockid_t clock, struct timespec* time), (clock, time))
VQ_FAILING(int, nanosleep, -1, 0, (const struct timespec* time, struct timespec* left),
           (time, left))
VQ_FAILING(DIR*, opendir, nullptr, nullptr, (const char* path), (path))
VQ_FAILING(std::FILE*, fdopen, nullptr, nullptr, (int fd, const char* mode), (fd, mode))

int __real_fstatvfs(int fd, struct statvfs* room);
int __wrap_fstatvfs(int fd, struct statvfs* room);
int __wrap_fstatvfs(int fd, struct statvfs* room) {
    int result = 0;
    if (answers("fstatvfs", -1, 0, result)) {
        return result;
    }
    result = __real_fstatvfs(fd, room);
    if (vqtest::g_room.isKnown) {
        room->f_frsize = vqtest::g_room.blockSize;
        room->f_blocks = 1000;
        room->f_bavail = vqtest::g_room.forAll;
        room->f_bfree = vqtest::g_room.forRoot;
    }
    return result;
}

// These two answer with the errno.
int __real_posix_fallocate(int fd, off_t offset, off_t size);
int __wrap_posix_fallocate(int fd, off_t offset, off_t size);
int __wrap_posix_fallocate(int fd, off_t offset, off_t size) {
    int error = 0;
    return vqtest::FailingCall::fails("posix_fallocate", error)
               ? error
               : __real_posix_fallocate(fd, offset, size);
}

int __real_pthread_attr_init(pthread_attr_t* attributes);
int __wrap_pthread_attr_init(pthread_attr_t* attributes);
int __wrap_pthread_attr_init(pthread_attr_t* attributes) {
    int error = 0;
    return vqtest::FailingCall::fails("pthread_attr_init", error)
               ? error
               : __real_pthread_attr_init(attributes);
}

int __real_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const bool makes = (flags & (O_CREAT | O_TMPFILE)) != 0;
    const mode_t mode = makes ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    vqtest::g_handedOn += (flags & O_CLOEXEC) == 0 ? 1 : 0;
    int result = 0;
    return answers("open", -1, -1, result) ? result : __real_open(path, flags, mode);
}

int __real_fcntl(int fd, int operation, void* argument);
int __wrap_fcntl(int fd, int operation, ...);
int __wrap_fcntl(int fd, int operation, ...) {
    std::va_list rest;
    va_start(rest, operation);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    int result = 0;
    return answers("fcntl", -1, 0, result) ? result : __real_fcntl(fd, operation, argument);
}

long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...);
long __wrap_syscall(long number, ...) {
    std::va_list rest;
    va_start(rest, number);
    long arguments[6];
    for (long& argument : arguments) {
        argument = va_arg(rest, long);
    }
    va_end(rest);
    long result = 0;
    return answers("syscall", -1L, 0L, result)
               ? result
               : __real_syscall(number, arguments[0], arguments[1], arguments[2], arguments[3],
                                arguments[4], arguments[5]);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
