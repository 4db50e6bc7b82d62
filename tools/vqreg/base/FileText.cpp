#include "tools/vqreg/base/FileText.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileHandle.h"

namespace vqreg {

namespace {

std::optional<std::string> restOf(int fd) {
    std::string text;
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t size = ::read(fd, buffer, sizeof buffer);
        if (size == 0) {
            return text;
        }
        if (size > 0) {
            text.append(buffer, static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
}

}  // namespace

std::optional<std::string> textOfFile(const std::string& path, eLinks links) {
    const int more = links == eLinks::eRefuse ? O_NOFOLLOW | O_NONBLOCK : 0;
    const FileHandle handle(::open(path.c_str(), O_RDONLY | O_CLOEXEC | more));
    return handle.isOpen() ? restOf(handle.get()) : std::nullopt;
}

std::string readInput(const std::string& file) {
    const bool isStandard = file == "-";
    std::error_code error;
    if (!isStandard && std::filesystem::is_directory(file, error)) {
        throw CommandError(eExit::eUnavailable, file + ": is a directory, not a file");
    }
    std::optional<std::string> text = isStandard ? restOf(STDIN_FILENO) : textOfFile(file);
    if (!text) {
        throw CommandError(
            eExit::eUnavailable,
            fmt::format("{}: {}", isStandard ? "standard input" : file, std::strerror(errno)));
    }
    return std::move(*text);
}

}  // namespace vqreg
