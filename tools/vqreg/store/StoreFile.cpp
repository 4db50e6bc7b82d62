#include "tools/vqreg/store/StoreFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string_view>

#include "RegLib/text/KeyPath.h"
#include "portable/FileLink.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileFacts.h"

namespace vqreg {

namespace {

constexpr char kPreferredDirectory[] = "/velquist/etc";
constexpr char kPreferredFile[] = "/velquist/etc/Velquist.cfg";
constexpr char kUsualFile[] = "/etc/Velquist.cfg";

}  // namespace

std::string rootName(const StoreOptions& options) {
    return options.root.value_or("Velquist");
}

Path rootPath(const StoreOptions& options) {
    const std::string root = rootName(options);
    Path path;
    VQRegLib::CKeyPath names(root);
    for (std::string_view name; names.next(name);) {
        path.emplace_back(name);
    }
    return path;
}

Path fullPath(const StoreOptions& options, const Path& path) {
    return joined(rootPath(options), path);
}

std::string givenFile(const StoreOptions& options) {
    if (!options.file) {
        struct stat status {};
        return ::stat(kPreferredDirectory, &status) == 0 ? kPreferredFile : kUsualFile;
    }
    if (options.file->empty()) {
        throw CommandError(eExit::eUsage, "--file needs the path of a file");
    }
    return std::filesystem::absolute(*options.file).string();
}

std::string storeFile(const StoreOptions& options) {
    const std::string given = givenFile(options);
    const std::string file = VQRegLib::fileBehindLinks(given);
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return file;
    }
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        throw CommandError(eExit::eUnavailable,
                           file + ": is a symbolic link of " + userName(status.st_uid) +
                               "'s; only those of root and your own are followed");
    }
    throw CommandError(eExit::eUnavailable, given + ": the symbolic links go in a circle");
}

}  // namespace vqreg
