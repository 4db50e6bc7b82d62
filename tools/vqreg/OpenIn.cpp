#include "tools/vqreg/OpenIn.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

#include "tools/vqreg/LockInfo.h"
#include "tools/vqreg/Output.h"

namespace vqreg {

namespace {

// By device and number: a process in another root has another path to the same object.
using Object = std::pair<dev_t, ino_t>;

// The change stamp, which is mapped as long as a store is in memory. The lock stays mapped for the
// rest of the process, and every process has had that of the default store once.
std::optional<Object> objectOf(const std::string& file) {
    struct stat status {};
    if (::stat(sharedObjectPath("CPSharedMemory", file).c_str(), &status) != 0) {
        return std::nullopt;
    }
    return Object(status.st_dev, status.st_ino);
}

// "7f0e4c000000-7f0e4c001000 rw-s 00000000 00:1b 4711  /dev/shm/..."
Object mappedObject(const std::string& line) {
    std::istringstream fields(line);
    std::string skipped;
    unsigned major = 0;
    unsigned minor = 0;
    char colon = 0;
    ino_t inode = 0;
    fields >> skipped >> skipped >> skipped >> std::hex >> major >> colon >> minor >> std::dec >>
        inode;
    return fields ? Object(makedev(major, minor), inode) : Object();
}

bool hasMapped(const std::string& process, const Object& object) {
    std::ifstream maps(process + "/maps");
    for (std::string line; std::getline(maps, line);) {
        // Most of what a process maps are no shared objects.
        if (line.find(" rw-s ") != std::string::npos && mappedObject(line) == object) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string OpenIn::text() const {
    return fmt::format("{} ({})", pid, printable(program));
}

std::vector<OpenIn> processesWith(const std::string& file) {
    std::vector<OpenIn> found;
    const std::optional<Object> object = objectOf(file);
    if (!object) {
        return found;
    }
    std::error_code error;
    const std::filesystem::directory_iterator end;
    for (std::filesystem::directory_iterator at("/proc", error); !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string();
        pid_t pid = 0;
        const auto [stop, fault] = std::from_chars(name.data(), name.data() + name.size(), pid);
        const bool isProcess = fault == std::errc() && stop == name.data() + name.size();
        if (isProcess && pid != ::getpid() && hasMapped(at->path().string(), *object)) {
            found.push_back({pid, programOf(pid)});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const OpenIn& left, const OpenIn& right) { return left.pid < right.pid; });
    return found;
}

}  // namespace vqreg
