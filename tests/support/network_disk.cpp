// A file system of the network for one process: preloaded, it lets the C library say that whatever it
// is asked for is on NFS.
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr long kNfs = 0x6969;

int statfsOfNfs(const char* path, struct statfs* status) {
    const long result = ::syscall(SYS_statfs, path, status);
    status->f_type = kNfs;
    return static_cast<int>(result);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int statfs(const char* path,
                                                             struct statfs* status) noexcept {
    return statfsOfNfs(path, status);
}
