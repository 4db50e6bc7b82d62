#include "tools/vqreg/StoreLink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <optional>

#include "tools/vqreg/ExitCode.h"
#include "tools/vqreg/FileFacts.h"
#include "tools/vqreg/FileHandle.h"

namespace vqreg {

namespace {

constexpr int kMostLinks = 40;  // as many as the kernel follows

struct Link {
    uid_t owner = 0;
    std::string target;
};

// Owner and target are those of one and the same link, whatever happens to the path meanwhile.
std::optional<Link> linkAt(const std::string& path) {
    const FileHandle handle(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    char target[PATH_MAX];
    if (!handle.isOpen() || ::fstat(handle.get(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return std::nullopt;
    }
    const ssize_t size = ::readlinkat(handle.get(), "", target, sizeof target);
    if (size <= 0) {
        return std::nullopt;
    }
    return Link{status.st_uid, std::string(target, static_cast<std::size_t>(size))};
}

}  // namespace

std::string fileBehindLinks(const std::string& path) {
    std::filesystem::path result = path;
    for (int links = 0; links < kMostLinks; ++links) {
        const std::optional<Link> link = linkAt(result.string());
        if (!link) {
            return result.string();
        }
        if (link->owner != 0 && link->owner != ::geteuid()) {
            throw CommandError(eExit::eUnavailable,
                               result.string() + ": is a symbolic link of " +
                                   userName(link->owner) +
                                   "'s; only those of root and your own are followed");
        }
        result = result.parent_path() / link->target;
    }
    throw CommandError(eExit::eUnavailable, path + ": the symbolic links go in a circle");
}

}  // namespace vqreg
