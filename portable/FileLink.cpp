#include "portable/FileLink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "portable/FileDescriptor.h"

namespace VQRegLib {

namespace {

constexpr int kMostLinks = 40;  // as many as the kernel follows

// The text of a link that may be followed; empty for anything else. Owner and text are those of one
// and the same link, whatever happens to the path meanwhile.
std::string trustedLink(const std::string& path) {
    char text[PATH_MAX];
    if (::readlink(path.c_str(), text, sizeof text) < 0) {
        return std::string();  // mostly
    }
    const CFileDescriptor link(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!link.isOpen() || ::fstat(link.get(), &status) != 0 || !S_ISLNK(status.st_mode) ||
        (status.st_uid != 0 && status.st_uid != ::geteuid())) {
        return std::string();
    }
    const ssize_t size = ::readlinkat(link.get(), "", text, sizeof text);
    if (size < 0) {
        return {};
    }
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace

std::string fileBehindLinks(const std::string& path) {
    std::string result = path;
    for (int links = 0; links < kMostLinks; ++links) {
        const std::string target = trustedLink(result);
        if (target.empty()) {
            break;
        }
        const std::size_t slash = result.rfind('/');
        if (target.front() == '/' || slash == std::string::npos) {
            result = target;
        } else {
            result.replace(slash + 1, std::string::npos, target);
        }
    }
    return result;
}

}  // namespace VQRegLib
