#include "portable/FileLocks.h"

#include <sys/sysmacros.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace VQRegLib {

namespace {

struct CCloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

// A line is "1: FLOCK  ADVISORY  WRITE 731 00:1b:4711 0 EOF"; those who wait have "->" before the kind.
std::int32_t holderOfFileLock(dev_t device, ino_t inode) {
    const std::unique_ptr<std::FILE, CCloseFile> locks(std::fopen("/proc/locks", "re"));
    char line[256];
    while (locks && std::fgets(line, sizeof line, locks.get())) {
        char kind[16] = {};
        char access[16] = {};
        long pid = 0;
        unsigned int majorNumber = 0;
        unsigned int minorNumber = 0;
        unsigned long long number = 0;
        const int fields = std::sscanf(line, "%*s %15s %*s %15s %ld %x:%x:%llu", kind, access, &pid,
                                       &majorNumber, &minorNumber, &number);
        if (fields == 6 && std::strcmp(kind, "FLOCK") == 0 && std::strcmp(access, "WRITE") == 0 &&
            number == inode && majorNumber == major(device) && minorNumber == minor(device)) {
            return pid > 0 ? static_cast<std::int32_t>(pid) : -1;
        }
    }
    return 0;
}

}  // namespace VQRegLib
