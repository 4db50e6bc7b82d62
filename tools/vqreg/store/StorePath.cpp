// Where a store is, and where something is in it.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/StoreLink.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/terminal/Output.h"

namespace vqreg {

namespace {

constexpr char kPreferredDirectory[] = "/velquist/etc";
constexpr char kPreferredFile[] = "/velquist/etc/Velquist.cfg";
constexpr char kUsualFile[] = "/etc/Velquist.cfg";

}  // namespace

std::string rootName(const StoreOptions& options) {
    return options.root.value_or("Velquist");
}

std::string storeFile(const StoreOptions& options) {
    return fileBehindLinks(givenFile(options));
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

std::vector<std::string> splitPath(const std::string& path) {
    if (path == "/" || path == ".") {
        return {};
    }
    std::vector<std::string> names;
    std::size_t begin = path.starts_with('/') ? 1 : 0;
    for (;;) {
        const std::size_t end = path.find('/', begin);
        names.push_back(path.substr(begin, end - begin));
        if (end == std::string::npos) {
            return names;
        }
        begin = end + 1;
    }
}

std::string plainPath(const std::vector<std::string>& names) {
    std::string path;
    for (const std::string& name : names) {
        if (&name != &names.front()) {
            path += '/';
        }
        path += name;
    }
    return path;
}

std::string joinPath(const std::vector<std::string>& names) {
    if (names.empty()) {
        return "/";
    }
    const std::string path = plainPath(names);
    // What would not be read back as these names without a slash in front.
    return path.empty() || path == "." || path.front() == '/' ? "/" + path : path;
}

bool isSameOrBelow(const std::vector<std::string>& path, const std::vector<std::string>& top) {
    return path.size() >= top.size() && std::equal(top.begin(), top.end(), path.begin(),
                                                   [](const auto& left, const auto& right) {
                                                       return folded(left) == folded(right);
                                                   });
}

std::vector<std::string> tidiedPath(
    const std::vector<std::string>& path,
    const std::function<bool(const std::vector<std::string>&)>& isThere) {
    if (path.size() < 2 || !path.back().empty()) {
        return path;
    }
    const std::vector<std::string> without(path.begin(), path.end() - 1);
    return !isThere(path) && isThere(without) ? without : path;
}

bool isNothing(const std::vector<std::string>& path) {
    return path.size() == 1 && path.front().empty();
}

std::string nameOfKey(const std::vector<std::string>& path) {
    if (isNothing(path)) {
        return "the key \"\" (the root key is \"/\")";
    }
    return path.empty() ? "the root key" : "the key \"" + printable(joinPath(path)) + '"';
}

}  // namespace vqreg
