// Whether another process has a file mapped can only be seen in /proc, and only of processes that this
// user may look at. That is enough for what it is for: to tell an administrator, who is usually root, that
// a program still runs with an older version of the library.
#include "portable/MappedFiles.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace VQRegLib {

namespace {

struct CClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
    void operator()(DIR* directory) const { closedir(directory); }
};

// A line is "7f0e4c000000-7f0e4c001000 rw-s 00000000 00:1b 4711    /dev/shm/name".
bool isOfFile(const char* line, const struct stat& file) {
    unsigned int majorNumber = 0;
    unsigned int minorNumber = 0;
    unsigned long long inode = 0;
    const int fields =
        std::sscanf(line, "%*s %*s %*s %x:%x %llu", &majorNumber, &minorNumber, &inode);
    return fields == 3 && inode == file.st_ino && majorNumber == major(file.st_dev) &&
           minorNumber == minor(file.st_dev);
}

bool hasMapped(long process, const struct stat& file) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%ld/maps", process);
    const std::unique_ptr<std::FILE, CClose> maps(std::fopen(path, "re"));
    char line[256];
    bool isStart = true;  // a long line comes in pieces
    while (maps && std::fgets(line, sizeof line, maps.get())) {
        if (isStart && isOfFile(line, file)) {
            return true;
        }
        isStart = std::strchr(line, '\n') != nullptr;
    }
    return false;
}

}  // namespace

std::int32_t processThatMaps(const char* path) noexcept {
    struct stat file {};
    if (lstat(path, &file) != 0 || !S_ISREG(file.st_mode)) {
        return 0;
    }
    const std::unique_ptr<DIR, CClose> processes(opendir("/proc"));
    while (const dirent* const entry = processes ? readdir(processes.get()) : nullptr) {
        char* end = nullptr;
        const long pid = std::strtol(entry->d_name, &end, 10);
        if (pid > 0 && *end == '\0' && hasMapped(pid, file)) {
            return static_cast<std::int32_t>(pid);
        }
    }
    return 0;
}

}  // namespace VQRegLib
