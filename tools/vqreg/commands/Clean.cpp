// vqreg clean: temporary files that were left.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

namespace fs = std::filesystem;

// A younger file may belong to a change that is being written.
constexpr std::time_t kYoungest = 60;

struct CleanOptions {
    bool dryRun = false;
    bool json = false;
    bool zero = false;
};

// 8-4-4-4-12 lower-case hexadecimal digits, of a random identifier.
bool isIdentifier(std::string_view text) {
    static constexpr std::string_view kShape = "xxxxxxxx-xxxx-4xxx-xxxx-xxxxxxxxxxxx";
    if (text.size() != kShape.size()) {
        return false;
    }
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool isDigit = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
        if (kShape[at] == 'x' ? !isDigit : c != kShape[at]) {
            return false;
        }
    }
    return true;
}

// What vqreg restore appends to the file's name while it writes.
bool isOfRestore(std::string_view appendix) {
    constexpr std::string_view kStart = ".restored-";
    return appendix.starts_with(kStart) && appendix.size() == kStart.size() + 6;
}

bool isOldFile(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           std::time(nullptr) - status.st_mtime > kYoungest;
}

std::vector<std::string> leftovers(const std::string& file) {
    const fs::path directory = fs::path(file).parent_path();
    const std::string name = fs::path(file).filename().string();
    std::error_code error;
    const fs::directory_iterator entries(directory, error);
    if (error) {
        throw CommandError(eExit::eUnavailable, fmt::format("the directory {}: {}",
                                                            directory.string(), error.message()));
    }
    std::vector<std::string> found;
    for (const auto& entry : entries) {
        const std::string other = entry.path().filename().string();
        if (!other.starts_with(name)) {
            continue;
        }
        const std::string_view appendix = std::string_view(other).substr(name.size());
        if ((isIdentifier(appendix) || isOfRestore(appendix)) && isOldFile(entry.path().string())) {
            found.push_back(entry.path().string());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

void clean(const CleanOptions& options, Context& context) {
    std::vector<std::string> removed;
    std::optional<CommandError> failure;
    for (const std::string& path : leftovers(storeFile(context.store))) {
        // Gone already is as good: somebody else cleans too.
        if (!options.dryRun && ::unlink(path.c_str()) != 0 && errno != ENOENT) {
            failure = CommandError(eExit::eWriteFailed, fmt::format("{}: cannot be removed: {}",
                                                                    path, std::strerror(errno)));
            continue;
        }
        removed.push_back(path);
    }
    Output& output = Output::standard();
    if (options.json) {
        output.json(Json(removed));
    }
    for (const std::string& path : removed) {
        if (!options.json) {
            output.line(options.zero ? path : printable(path), options.zero ? '\0' : '\n');
        }
    }
    if (failure) {
        throw *failure;
    }
}

}  // namespace

void defineClean(CLI::App& command, Context& context) {
    const auto options = std::make_shared<CleanOptions>();
    command.add_flag("-n,--dry-run", options->dryRun, "Only list them");
    command.add_flag("--json", options->json, "List them as JSON");
    command.add_flag("-0", options->zero, "End each name with a NUL");
    command.footer("Files that are younger than a minute stay: they may be in use.");
    command.callback([options, &context] { clean(*options, context); });
}

}  // namespace vqreg
