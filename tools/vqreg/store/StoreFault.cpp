#include "tools/vqreg/store/StoreFault.h"

#include <VQRegLib.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "tools/vqreg/base/FileFacts.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/store/PlaceFault.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

using namespace VQRegLib;

namespace {

std::optional<CommandError> textFault(const std::string& file, const std::string& text) {
    const ConfigText config = parseConfigText(text);
    const Finding* const first = config.firstError();
    return first ? std::optional<CommandError>({eExit::eMalformed, format(file, *first)})
                 : std::nullopt;
}

}  // namespace

bool hasRootKey(const std::string& text, const std::string& root) {
    std::string wanted = folded(root);
    std::replace(wanted.begin(), wanted.end(), '\\', '/');
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        if (text[begin] == '[') {
            const std::size_t close = std::min(text.find(']', begin), end);
            const std::string path = folded(text.substr(begin + 1, close - begin - 1));
            if (path.starts_with(wanted) &&
                (path.size() == wanted.size() || path[wanted.size()] == '/')) {
                return true;
            }
        }
        begin = end + 1;
    }
    return false;
}

CommandError openFault(const std::string& file, const std::string& root) {
    if (const auto fault = directoryFault(file)) {
        return *fault;
    }
    if (const auto fault = fileFault(file)) {
        return *fault;
    }
    const std::optional<std::string> text = textOfFile(file, eLinks::eRefuse);
    if (text) {
        if (const auto fault = textFault(file, *text)) {
            return *fault;
        }
    }
    if (const auto fault = sharedObjectFault(file)) {
        return *fault;
    }
    const std::string directory = directoryOf(file);
    if (text && !hasRootKey(*text, root) && !may(directory, W_OK)) {
        return unavailable(
            fmt::format("{}: the key [{}] is missing, and {}", file, root, notWritable(directory)));
    }
    return unavailable(
        fmt::format("{}: the library cannot open the store; its trace log may say why", file));
}

CommandError missingRootFault(const std::string& file, const std::string& root,
                              const std::string& text) {
    if (const auto fault = textFault(file, text)) {
        return *fault;
    }
    return {eExit::eNegative, fmt::format("{} has no key [{}]", file, root)};
}

CommandError writeFault(const std::string& file) {
    const std::string directory = directoryOf(file);
    const std::string start = file + ": the change could not be written: ";
    if (!may(directory, W_OK)) {
        return {eExit::eWriteFailed, start + notWritable(directory)};
    }
    struct statvfs system {};
    if (::statvfs(directory.c_str(), &system) == 0 && system.f_blocks != 0) {
        struct stat status {};
        const auto size =
            ::stat(file.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
        if (size / system.f_frsize >= system.f_bavail) {
            return {eExit::eWriteFailed,
                    start + fmt::format("no room on the file system of {}", directory)};
        }
    }
    return {eExit::eWriteFailed,
            start + fmt::format("there is no room, or no new file can be made, in {}", directory)};
}

CommandError replaceFault(const std::string& file) {
    const std::string directory = directoryOf(file);
    std::string why = "the new file could not take its place";
    struct stat above {};
    struct stat status {};
    struct statx more {};
    if (::statx(AT_FDCWD, file.c_str(), 0, STATX_TYPE, &more) == 0 &&
        (more.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
        why = "the file is a mount point and cannot be replaced; mount its directory instead";
    } else if (::stat(directory.c_str(), &above) == 0 && (above.st_mode & S_ISVTX) != 0 &&
               ::stat(file.c_str(), &status) == 0 && status.st_uid != ::geteuid()) {
        why = fmt::format("the directory {} is sticky, and the file is {}'s", directory,
                          userName(status.st_uid));
    }
    return {eExit::eWriteFailed,
            fmt::format("{}: the change could not be written: {} (\"vqreg clean\" removes what is "
                        "left)",
                        file, why)};
}

CommandError codeFault(const std::string& file, const std::string& root, int code) {
    switch (code) {
        case REGLIB_E_BAD_FORMAT:
        case REGLIB_E_FILE_OPEN:
        case REGLIB_E_NOT_INITIALIZED:
            return openFault(file, root);
        case REGLIB_E_NOT_A_KEY:
            return {eExit::eWrongKind, file + ": a value is in the place of a key"};
        case REGLIB_E_NOT_A_VALUE:
            return {eExit::eWrongKind, file + ": a sub key is in the place of a value"};
        default:
            return unavailable(
                fmt::format("{}: the library answers 0x{:08X}", file, static_cast<unsigned>(code)));
    }
}

}  // namespace vqreg
