#include "tools/vqreg/OpenIn.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>

#include "tools/vqreg/LockInfo.h"
#include "tools/vqreg/Output.h"

namespace vqreg {

namespace {

// A store's change stamp lies in a memory segment, mapped as long as the store is in memory:
// "7f0e4c000000-7f0e4c001000 rw-s 00000000 00:01 4711  /SYSV00000000 (deleted)", the number being that
// of the segment.
bool hasMapped(const std::string& process, std::int64_t segment) {
    std::ifstream maps(process + "/maps");
    for (std::string line; std::getline(maps, line);) {
        // Most of what a process maps are no segments.
        if (line.find("/SYSV") == std::string::npos) {
            continue;
        }
        std::istringstream fields(line);
        std::string range, access, offset, device;
        std::int64_t number = -1;
        if (fields >> range >> access >> offset >> device >> number && number == segment) {
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
    const std::optional<std::int64_t> segment = blockSegment(file);
    if (!segment) {
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
        if (isProcess && pid != ::getpid() && hasMapped(at->path().string(), *segment)) {
            found.push_back({pid, programOf(pid)});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const OpenIn& left, const OpenIn& right) { return left.pid < right.pid; });
    return found;
}

}  // namespace vqreg
