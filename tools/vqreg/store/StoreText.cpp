#include "tools/vqreg/store/StoreText.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/store/PlaceFault.h"
#include "tools/vqreg/store/StoreFault.h"

namespace vqreg {

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

std::optional<std::string> readStoreFileIfAny(const std::string& file, const std::string& root) {
    if (const auto fault = directoryFault(file)) {
        throw *fault;
    }
    if (const auto fault = fileFault(file)) {
        throw *fault;
    }
    std::optional<std::string> text = textOfFile(file, eLinks::eRefuse);
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
        throw CommandError(eExit::eUnavailable, file + ": the file does not exist");
    }
    return std::move(*text);
}

}  // namespace vqreg
