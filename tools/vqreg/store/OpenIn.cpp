#include "tools/vqreg/store/OpenIn.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

#include "portable/ObjectName.h"
#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

// What a process maps, as a line tells it:
// "7f0e4c000000-7f0e4c001000 rw-s 00000000 00:01 4711    /dev/shm/name".
struct Mapping {
    std::string device;
    std::int64_t number = -1;  // of the file
};

using Wanted = std::function<bool(const Mapping&)>;

// Numbers of segments mean something within one IPC namespace: in each the first one is 0.
bool isInThisIpcNamespace(const std::string& process) {
    struct stat own {};
    struct stat its {};
    return ::stat("/proc/self/ns/ipc", &own) == 0 &&
           ::stat((process + "/ns/ipc").c_str(), &its) == 0 && own.st_dev == its.st_dev &&
           own.st_ino == its.st_ino;
}

// `part` is in the line of every mapping that can be wanted, which most of what a process maps is not.
std::size_t countMapped(const std::string& process, const std::string& part,
                        const Wanted& isWanted) {
    std::size_t count = 0;
    std::ifstream maps(process + "/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(part) == std::string::npos) {
            continue;
        }
        std::istringstream fields(line);
        std::string range, access, offset;
        Mapping mapping;
        if (fields >> range >> access >> offset >> mapping.device >> mapping.number &&
            isWanted(mapping)) {
            ++count;
        }
    }
    return count;
}

struct Mappers {
    std::vector<OpenIn> processes;  // without this one
    std::size_t mappings = 0;       // with those of this one
};

using Sought = std::function<bool(const std::string& process)>;

Mappers processesThatMap(const std::string& part, const Wanted& isWanted,
                         const Sought& isSought = nullptr) {
    Mappers found;
    std::error_code error;
    const std::filesystem::directory_iterator end;
    for (std::filesystem::directory_iterator at("/proc", error); !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string();
        pid_t pid = 0;
        const auto [stop, fault] = std::from_chars(name.data(), name.data() + name.size(), pid);
        const bool isProcess = fault == std::errc() && stop == name.data() + name.size();
        const std::string process = at->path().string();
        const std::size_t count = isProcess ? countMapped(process, part, isWanted) : 0;
        if (count == 0 || (isSought && !isSought(process))) {
            continue;
        }
        found.mappings += count;
        if (pid != ::getpid()) {
            found.processes.push_back({pid, programOf(pid)});
        }
    }
    std::sort(found.processes.begin(), found.processes.end(),
              [](const OpenIn& left, const OpenIn& right) { return left.pid < right.pid; });
    return found;
}

}  // namespace

std::string OpenIn::text() const {
    return fmt::format("{} ({})", pid, printable(program));
}

std::string Openers::hiddenText(const std::string& what) const {
    // Root sees all there is here, and nothing of what is in another container.
    const std::string why = ::geteuid() == 0 ? "out of sight" : "that only root can name";
    return hidden == 0 ? std::string()
                       : fmt::format("{}{} {}{}", hidden == 1 ? "" : "up to ", hidden, what, why);
}

std::string listOf(const std::vector<OpenIn>& processes) {
    std::string list;
    for (const OpenIn& process : processes) {
        list += (list.empty() ? "" : ", ") + process.text();
    }
    return list;
}

std::string Openers::text() const {
    const std::string list = listOf(processes);
    const std::string more = hiddenText("");
    if (list.empty()) {
        return more.empty() ? "no process in sight" : more;
    }
    return more.empty() ? list : list + " and " + more;
}

// A store's change stamp lies in a memory segment, mapped as long as the store is in memory, under
// the number of the segment.
Openers processesWith(const std::string& file) {
    const std::optional<std::int64_t> segment = blockSegment(file);
    if (!segment) {
        return {};
    }
    const std::size_t before = attachments(*segment);
    const Mappers found = processesThatMap(
        "/SYSV", [&](const Mapping& mapping) { return mapping.number == *segment; },
        isInThisIpcNamespace);
    // Who comes or goes meanwhile is not hidden.
    const std::size_t all = std::min(before, attachments(*segment));
    return {found.processes, all - std::min(all, found.mappings)};
}

std::vector<OpenIn> olderProcessesWith(const std::string& file) {
    std::vector<std::pair<std::string, std::int64_t>> objects;
    for (const char* const kind : {VQRegLib::kOlderLockKind, VQRegLib::kOlderBlockKind}) {
        struct stat status {};
        if (::lstat(VQRegLib::objectPath(kind, file).c_str(), &status) == 0) {
            objects.emplace_back(
                fmt::format("{:02x}:{:02x}", major(status.st_dev), minor(status.st_dev)),
                static_cast<std::int64_t>(status.st_ino));
        }
    }
    if (objects.empty()) {
        return {};
    }
    const auto isWanted = [&](const Mapping& mapping) {
        return std::find(objects.begin(), objects.end(),
                         std::pair(mapping.device, mapping.number)) != objects.end();
    };
    return processesThatMap("/CP", isWanted).processes;
}

}  // namespace vqreg
