// What the system says about a file.
#ifndef TOOLS_VQREG_BASE_FILEFACTS_H
#define TOOLS_VQREG_BASE_FILEFACTS_H

#include <sys/stat.h>

#include <string>

namespace vqreg {

std::string userName(uid_t user);                   // the number when it has no name
std::string groupName(gid_t group);                 // likewise
std::string modeText(mode_t mode);                  // "0644"
std::string localTime(time_t time);                 // "2024-05-17 14:03:07"
std::string notAFile(mode_t mode);                  // "is a directory, not a file"
std::string ownerAndMode(const std::string& path);  // "owner root, mode 0755"

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_FILEFACTS_H
