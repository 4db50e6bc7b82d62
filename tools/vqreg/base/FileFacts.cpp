#include "tools/vqreg/base/FileFacts.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace vqreg {

std::string userName(uid_t user) {
    const passwd* const entry = ::getpwuid(user);
    return entry ? entry->pw_name : std::to_string(user);
}

std::string groupName(gid_t group) {
    const ::group* const entry = ::getgrgid(group);
    return entry ? entry->gr_name : std::to_string(group);
}

std::string modeText(mode_t mode) {
    return fmt::format("{:04o}", static_cast<unsigned>(mode & 07777));
}

std::string notAFile(mode_t mode) {
    return fmt::format("is {}, not a file", S_ISDIR(mode)   ? "a directory"
                                            : S_ISLNK(mode) ? "a symbolic link"
                                                            : "a special file");
}

std::string localTime(time_t time) {
    tm parts{};
    ::localtime_r(&time, &parts);
    char text[32];
    const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return std::string(text, size);
}

std::string ownerAndMode(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return std::strerror(errno);
    }
    return fmt::format("owner {}, mode {}", userName(status.st_uid), modeText(status.st_mode));
}

}  // namespace vqreg
