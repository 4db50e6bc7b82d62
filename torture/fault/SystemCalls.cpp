// Left out, because they cannot fail for who gives them what they need:
//  - getpid, gettid, geteuid, getuid, umask, sched_yield, clock_gettime, exit, set_robust_list, rseq,
//    rt_sigprocmask, rt_sigaction, rt_sigreturn, futex to wake somebody, lseek on a regular file, uname,
//    prctl for a thread's name;
//  - a futex that waits fails only with EINTR and EAGAIN, which is a wake-up for nothing; the C library ends
//    the process on any other error, rightly;
//  - munmap and shmdt, whose failure is a leak that nobody could do anything about, and brk and mprotect, by
//    which the C library gets its memory: the shortage of that is another check's;
//  - fcntl that asks for flags; shmctl that removes what the process itself has just made;
//  - madvise and sync_file_range, which are advice;
//  - kill with the signal 0, whose errors are its answers; the locking calls with EAGAIN, which means that
//    somebody else has the lock and that waiting helps.
#include "fault/SystemCalls.h"

#if defined(__x86_64__)

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/ipc.h>
#include <sys/syscall.h>

#include <cerrno>
#include <map>

namespace vqtorture {

namespace {

using Kind = Fault::Kind;
using Table = std::map<std::uint64_t, SystemCall>;

const Table& table() {
    static const Table calls = {
        {SYS_openat, {"openat", {{EIO}, {EMFILE}, {EACCES}, {EINTR}, {ENFILE}, {ENOMEM}}}},
        {SYS_close,
         {"close",
          {{EIO, Kind::eAfter},
           {EINTR, Kind::eAfter},
           {ENOSPC, Kind::eAfter},
           {EDQUOT, Kind::eAfter}}}},
        {SYS_read, {"read", {{EIO}, {0, Kind::eHalf}, {EINTR}, {0, Kind::eOneByte}}}},
        {SYS_pread64, {"pread", {{EIO}, {0, Kind::eHalf}, {EINTR}, {0, Kind::eOneByte}}}},
        {SYS_writev,
         {"writev", {{ENOSPC}, {EDQUOT}, {0, Kind::eHalf}, {EIO}, {EINTR}, {0, Kind::eOneByte}}}},
        {SYS_write,
         {"write", {{ENOSPC}, {EDQUOT}, {0, Kind::eHalf}, {EIO}, {EINTR}, {0, Kind::eOneByte}}}},
        {SYS_pwrite64,
         {"pwrite", {{ENOSPC}, {EDQUOT}, {0, Kind::eHalf}, {EIO}, {EINTR}, {0, Kind::eOneByte}}}},
        {SYS_newfstatat, {"stat", {{EIO}, {EACCES}, {ENOMEM}}}},
        {SYS_fstat, {"fstat", {{EIO}, {ENOMEM}}}},
        {SYS_statx, {"statx", {{EIO}, {EACCES}, {ENOMEM}, {ENOSYS}}}},
        {SYS_fstatfs, {"fstatfs", {{EIO}, {EINTR}, {ENOSYS}}}},
        {SYS_fchmod, {"fchmod", {{EIO}, {EROFS}, {EPERM}}}},
        {SYS_chmod, {"chmod", {{EIO}, {EROFS}, {EACCES}, {EPERM}}}},
        {452, {"fchmodat2", {{EIO}, {EROFS}, {EACCES}, {EPERM}, {ENOSYS}}}},
        {SYS_unlink, {"unlink", {{EIO}, {EROFS}, {EACCES}}}},
        {SYS_link, {"link", {{EIO}, {ENOSPC}, {EDQUOT}, {EACCES}, {EROFS}, {EPERM}, {EMLINK}}}},
        {SYS_linkat, {"linkat", {{EIO}, {ENOSPC}, {EDQUOT}, {EACCES}, {EROFS}, {ENOENT}}}},
        {SYS_rename, {"rename", {{EIO}, {ENOSPC}, {EDQUOT}, {EACCES}, {EROFS}}}},
        {SYS_renameat2,
         {"renameat2", {{EIO}, {ENOSPC}, {EDQUOT}, {EACCES}, {EROFS}, {EINVAL}, {ENOSYS}}}},
        {SYS_flock, {"flock", {{EINTR}, {ENOLCK}, {EIO}}}},
        {SYS_fallocate, {"fallocate", {{ENOSPC}, {EDQUOT}, {EIO}, {EINTR}}}},
        {SYS_mmap, {"mmap", {{ENOMEM}}}},
        {SYS_shmget, {"shmget", {{ENOSPC}, {ENOMEM}, {EACCES}}}},
        {SYS_shmat, {"shmat", {{ENOMEM}, {EACCES}}}},
        {SYS_shmctl, {"shmctl", {{EACCES}, {EPERM}}}},
        {SYS_getrandom, {"getrandom", {{EAGAIN}, {0, Kind::eHalf}, {EINTR}, {ENOSYS}}}},
        {SYS_clone, {"clone", {{EAGAIN}, {ENOMEM}}}},
        {SYS_clone3, {"clone3", {{EAGAIN}, {ENOMEM}, {ENOSYS}}}},
        {SYS_readlink, {"readlink", {{EIO}, {EACCES}}}},
        {SYS_readlinkat, {"readlinkat", {{EIO}, {EACCES}}}},
        {SYS_getdents64, {"getdents64", {{EIO}}}},
        {SYS_getcwd, {"getcwd", {{ENOMEM}, {EACCES}}}},
        {SYS_process_vm_readv, {"process_vm_readv", {{EPERM}, {ENOSYS}}}},
        {SYS_clock_nanosleep, {"clock_nanosleep", {{EINTR}}}},
    };
    return calls;
}

const SystemCall kCreation = {"openat(new)",
                              {{EIO}, {ENOSPC}, {EDQUOT}, {EMFILE}, {EACCES}, {EROFS}, {EINTR}}};
const SystemCall kByteLock = {"fcntl(lock)", {{ENOLCK}, {EINTR}}};
const SystemCall kCopy = {"fcntl(copy)", {{EMFILE}}};
const SystemCall kSleep = {"futex", {{EINTR}, {EAGAIN}}};

}  // namespace

const SystemCall* plausibleFaults(std::uint64_t number, const std::uint64_t (&arguments)[6]) {
    const std::uint64_t flags = arguments[2];
    if (number == SYS_openat && ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE)) {
        return &kCreation;
    }
    if (number == SYS_futex) {
        const std::uint64_t command = arguments[1] & FUTEX_CMD_MASK;
        return command == FUTEX_WAIT || command == FUTEX_WAIT_BITSET ? &kSleep : nullptr;
    }
    if (number == SYS_fcntl) {
        return arguments[1] == F_OFD_SETLK       ? &kByteLock
               : arguments[1] == F_DUPFD_CLOEXEC ? &kCopy
                                                 : nullptr;
    }
    if (number == SYS_shmctl && arguments[1] != IPC_STAT) {
        return nullptr;
    }
    const auto found = table().find(number);
    return found == table().end() ? nullptr : &found->second;
}

}  // namespace vqtorture

#else

namespace vqtorture {

// The numbers above are those of another machine.
const SystemCall* plausibleFaults(std::uint64_t, const std::uint64_t (&)[6]) {
    return nullptr;
}

}  // namespace vqtorture

#endif
