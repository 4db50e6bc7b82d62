#include "fault/SystemCalls.h"

#if defined(__x86_64__)

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
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
        {SYS_statfs, {"statfs", {{EIO}, {EACCES}, {EINTR}, {ENOSYS}, {ENOMEM}}}},
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
        {SYS_fdatasync, {"fdatasync", {{EIO}, {ENOSPC}, {EDQUOT}, {EINTR}}}},
        {SYS_fsync, {"fsync", {{EIO}, {ENOSPC}, {EDQUOT}, {EINTR}, {EINVAL}}}},
        {SYS_syncfs, {"syncfs", {{EIO}, {ENOSPC}, {EDQUOT}, {EINTR}}}},
        {SYS_sync_file_range,
         {"sync_file_range", {{EIO}, {ENOSYS}, {ENOSPC}, {EINTR}, {EDQUOT}, {EPERM}}}},
        {SYS_faccessat, {"faccessat", {{EIO}, {EACCES}, {ENOMEM}}}},
        {439, {"faccessat2", {{EIO}, {EACCES}, {ENOMEM}, {ENOSYS}}}},
        {SYS_dup3, {"dup3", {{EBUSY}, {EMFILE}, {EINTR}}}},
        {SYS_inotify_init1, {"inotify_init1", {{EMFILE}, {ENFILE}, {ENOMEM}, {ENOSYS}}}},
        {SYS_inotify_add_watch, {"inotify_add_watch", {{ENOSPC}, {ENOMEM}, {EACCES}, {ENOENT}}}},
        {SYS_mmap, {"mmap", {{ENOMEM}}}},
        {SYS_mremap, {"mremap", {{ENOMEM}}}},
        {SYS_shmget, {"shmget", {{ENOSPC}, {ENOMEM}, {EACCES}}}},
        {SYS_shmat, {"shmat", {{ENOMEM}, {EACCES}}}},
        {SYS_getrandom, {"getrandom", {{EAGAIN}, {0, Kind::eHalf}, {EINTR}, {ENOSYS}}}},
        {SYS_clone, {"clone", {{EAGAIN}, {ENOMEM}}}},
        {SYS_clone3, {"clone3", {{EAGAIN}, {ENOMEM}, {ENOSYS}}}},
        {SYS_readlink, {"readlink", {{EIO}, {EACCES}}}},
        {SYS_readlinkat, {"readlinkat", {{EIO}, {EACCES}}}},
        {SYS_getdents64, {"getdents64", {{EIO}}}},
        {SYS_getcwd, {"getcwd", {{ENOMEM}}}},
        {SYS_process_vm_readv, {"process_vm_readv", {{EPERM}, {ENOSYS}}}},
        {SYS_clock_nanosleep, {"clock_nanosleep", {{EINTR}}}},
    };
    return calls;
}

const SystemCall kCreation = {"openat(new)",
                              {{EIO}, {ENOSPC}, {EDQUOT}, {EMFILE}, {EACCES}, {EROFS}, {EINTR}}};
const SystemCall kByteLock = {"fcntl(lock)", {{ENOLCK}, {EINTR}}};
const SystemCall kCopy = {"fcntl(copy)", {{EMFILE}}};
const SystemCall kLook = {"shmctl", {{EACCES}, {EPERM}}};
const SystemCall kSleep = {"futex", {{EINTR}, {EAGAIN}}};

constexpr char kCannotFail[] = "it cannot fail for who gives it what it needs";
constexpr char kOfMemory[] =
    "by it the C library gets its memory: the shortage of that is another check's";
constexpr char kNoHelp[] = "its failure is a leak that nobody could do anything about";
constexpr char kIsFlag[] = "it asks for or sets flags of a descriptor that is open";
constexpr char kIsAdvice[] = "it is advice";

const std::map<std::uint64_t, const char*>& leftOut() {
    static const std::map<std::uint64_t, const char*> calls = {
        {SYS_getpid, kCannotFail},
        {SYS_gettid, kCannotFail},
        {SYS_getuid, kCannotFail},
        {SYS_geteuid, kCannotFail},
        {SYS_umask, kCannotFail},
        {SYS_uname, kCannotFail},
        {SYS_sched_yield, kCannotFail},
        {SYS_clock_gettime, kCannotFail},
        {SYS_lseek, kCannotFail},
        {SYS_exit, kCannotFail},
        {SYS_set_robust_list, kCannotFail},
        {SYS_rseq, kCannotFail},
        {SYS_rt_sigprocmask, kCannotFail},
        {SYS_rt_sigaction, kCannotFail},
        {SYS_rt_sigreturn, kCannotFail},
        {SYS_restart_syscall, "the kernel goes on by it with a call that has been judged"},
        {SYS_brk, kOfMemory},
        {SYS_mprotect, kOfMemory},
        {SYS_munmap, kNoHelp},
        {SYS_shmdt, kNoHelp},
        {SYS_inotify_rm_watch, "it fails only for a watch that has ended, which is what is wanted"},
        {SYS_madvise, kIsAdvice},
    };
    return calls;
}

KnownCall knownFutex(std::uint64_t operation) {
    const std::uint64_t command = operation & FUTEX_CMD_MASK;
    if (command == FUTEX_WAIT || command == FUTEX_WAIT_BITSET) {
        // With any other error than those the C library ends the process, rightly.
        return {&kSleep};
    }
    const bool isWaking = command == FUTEX_WAKE || command == FUTEX_WAKE_OP;
    return isWaking ? KnownCall{nullptr, kCannotFail} : KnownCall{};
}

KnownCall knownFcntl(std::uint64_t command) {
    switch (command) {
        case F_OFD_SETLK:
            return {&kByteLock};
        case F_DUPFD_CLOEXEC:
            return {&kCopy};
        case F_GETFL:
        case F_SETFL:
        case F_GETFD:
        case F_SETFD:
            return {nullptr, kIsFlag};
        default:
            return {};
    }
}

// Those for which it depends on what they are asked for.
KnownCall knownByArguments(std::uint64_t number, const std::uint64_t (&arguments)[6]) {
    switch (number) {
        case SYS_futex:
            return knownFutex(arguments[1]);
        case SYS_fcntl:
            return knownFcntl(arguments[1]);
        case SYS_shmctl:
            return arguments[1] == IPC_RMID
                       ? KnownCall{nullptr, "the process itself has just made what it removes"}
                       : KnownCall{};
        case SYS_kill:
            return arguments[1] == 0 ? KnownCall{nullptr, "the errors of signal 0 are its answers"}
                                     : KnownCall{};
        case SYS_prctl:
            return arguments[0] == PR_SET_NAME ? KnownCall{nullptr, kCannotFail} : KnownCall{};
        default:
            return {};
    }
}

}  // namespace

KnownCall knownCall(std::uint64_t number, const std::uint64_t (&arguments)[6]) {
    const std::uint64_t flags = arguments[2];
    if (number == SYS_openat && ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE)) {
        return {&kCreation};
    }
    if (number == SYS_shmctl && arguments[1] == IPC_STAT) {
        return {&kLook};
    }
    const auto found = table().find(number);
    if (found != table().end()) {
        return {&found->second};
    }
    const auto out = leftOut().find(number);
    return out != leftOut().end() ? KnownCall{nullptr, out->second}
                                  : knownByArguments(number, arguments);
}

}  // namespace vqtorture

#else

namespace vqtorture {

// The numbers above are those of another machine.
KnownCall knownCall(std::uint64_t, const std::uint64_t (&)[6]) {
    return {};
}

}  // namespace vqtorture

#endif
