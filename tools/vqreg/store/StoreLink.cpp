#include "tools/vqreg/store/StoreLink.h"

#include <sys/stat.h>
#include <unistd.h>

#include "portable/FileLink.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileFacts.h"

namespace vqreg {

std::string fileBehindLinks(const std::string& path) {
    const std::string file = VQRegLib::fileBehindLinks(path);
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return file;
    }
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        throw CommandError(eExit::eUnavailable,
                           file + ": is a symbolic link of " + userName(status.st_uid) +
                               "'s; only those of root and your own are followed");
    }
    throw CommandError(eExit::eUnavailable, path + ": the symbolic links go in a circle");
}

}  // namespace vqreg
