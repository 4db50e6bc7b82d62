#include "tools/vqreg/store/StoreFault.h"

#include <VQRegLib.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <optional>

#include "portable/ObjectName.h"
#include "tools/vqreg/base/FileFacts.h"
#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

namespace {

using namespace VQRegLib;

std::string directoryOf(const std::string& file) {
    return std::filesystem::path(file).parent_path().string();
}

bool may(const std::string& path, int mode) {
    return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

CommandError unavailable(const std::string& message) {
    return {eExit::eUnavailable, message};
}

// "the directory D is not writable (owner root, mode 0755)", or why else nothing can be made in it.
std::string notWritable(const std::string& directory) {
    struct statvfs system {};
    if (::statvfs(directory.c_str(), &system) == 0 && (system.f_flag & ST_RDONLY) != 0) {
        return fmt::format("the directory {} is on a read-only file system", directory);
    }
    return fmt::format("the directory {} is not writable ({})", directory, ownerAndMode(directory));
}

std::optional<CommandError> directoryFault(const std::string& file) {
    const std::string directory = directoryOf(file);
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return unavailable(fmt::format("{}: the directory {} does not exist", file, directory));
        }
        return unavailable(
            fmt::format("{}: the directory {}: {}", file, directory, std::strerror(errno)));
    }
    if (!S_ISDIR(status.st_mode)) {
        return unavailable(fmt::format("{}: {} is not a directory", file, directory));
    }
    if (!may(directory, X_OK)) {
        return unavailable(fmt::format("{}: the directory {} may not be entered ({})", file,
                                       directory, ownerAndMode(directory)));
    }
    return std::nullopt;
}

std::optional<CommandError> missingFileFault(const std::string& file) {
    const std::string directory = directoryOf(file);
    if (!may(directory, W_OK)) {
        return unavailable(
            fmt::format("{}: the file does not exist, and {}", file, notWritable(directory)));
    }
    return std::nullopt;
}

// A link in the place of the file has been followed already, where that may be done.
std::optional<CommandError> fileFault(const std::string& file) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0) {
        return errno == ENOENT ? missingFileFault(file)
                               : unavailable(fmt::format("{}: {}", file, std::strerror(errno)));
    }
    if (!S_ISREG(status.st_mode)) {
        return unavailable(file + ": " + notAFile(status.st_mode));
    }
    if (!may(file, R_OK)) {
        return unavailable(
            fmt::format("{}: the file may not be read ({})", file, ownerAndMode(file)));
    }
    return std::nullopt;
}

std::optional<std::string> contentOf(const std::string& file) {
    const FileHandle handle(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (!handle.isOpen() || ::fstat(handle.get(), &status) != 0) {
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t at = 0;
    while (at < text.size()) {
        const ssize_t size = ::read(handle.get(), text.data() + at, text.size() - at);
        if (size < 0 && errno != EINTR) {
            return std::nullopt;
        }
        if (size == 0) {
            break;  // it has been cut meanwhile
        }
        at += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
    }
    text.resize(at);
    return text;
}

std::optional<CommandError> textFault(const std::string& file, const std::string& text) {
    const ConfigText config = parseConfigText(text);
    const auto first = std::find_if(config.findings.begin(), config.findings.end(),
                                    [](const Finding& finding) { return finding.isError; });
    if (first == config.findings.end()) {
        return std::nullopt;
    }
    return CommandError(eExit::eMalformed, format(file, *first));
}

std::optional<CommandError> sharedObjectFault(const std::string& file) {
    for (const char* const kind : {VQRegLib::kLockKind, VQRegLib::kBlockKind}) {
        const std::string object = VQRegLib::objectPath(kind, file);
        struct stat status {};
        if (::lstat(object.c_str(), &status) != 0) {
            if (!may(directoryOf(object), W_OK)) {
                return unavailable(fmt::format("{}: {}", file, notWritable(directoryOf(object))));
            }
        } else if (!S_ISREG(status.st_mode) || !may(object, R_OK | W_OK)) {
            return unavailable(fmt::format("{}: the shared object {} may not be used ({})", file,
                                           object, ownerAndMode(object)));
        }
    }
    return std::nullopt;
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
    const std::optional<std::string> text = contentOf(file);
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

std::optional<std::string> lostTextHint(const std::string& file) {
    struct stat status {};
    const bool isMissing = ::lstat(file.c_str(), &status) != 0;
    if (isMissing ? errno != ENOENT : !S_ISREG(status.st_mode) || status.st_size > 0) {
        return std::nullopt;
    }
    struct stat backup {};
    if (::lstat((file + ".bak").c_str(), &backup) != 0 || !S_ISREG(backup.st_mode) ||
        backup.st_size == 0) {
        return std::nullopt;
    }
    return fmt::format(
        "the file is {} and its backup is not; \"vqreg restore\" brings the text back",
        isMissing ? "missing" : "empty");
}

std::optional<CommandError> nameFault(const std::string& file) {
    constexpr std::size_t kAppended = 36;  // what tells the temporary files apart
    constexpr std::size_t kLongest = NAME_MAX - kAppended;
    const std::string name = std::filesystem::path(file).filename();
    if (name.size() <= kLongest) {
        return std::nullopt;
    }
    return unavailable(
        fmt::format("{}: the file's name is too long: it has {} bytes and may have "
                    "{}, because changes are written to one with an appendix",
                    file, name.size(), kLongest));
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

std::optional<std::string> readStoreFileIfAny(const std::string& file, const std::string& root) {
    if (const auto fault = directoryFault(file)) {
        throw *fault;
    }
    if (const auto fault = fileFault(file)) {
        throw *fault;
    }
    std::optional<std::string> text = contentOf(file);
    if (!text) {
        struct stat status {};
        if (::stat(file.c_str(), &status) == 0 || errno != ENOENT) {
            throw openFault(file, root);
        }
    }
    return text;
}

std::string readStoreFile(const std::string& file, const std::string& root) {
    std::optional<std::string> text = readStoreFileIfAny(file, root);
    if (!text) {
        throw unavailable(file + ": the file does not exist");
    }
    return std::move(*text);
}

}  // namespace vqreg
