#include "tools/vqreg/store/WholeFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/base/FileIdentity.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Output.h"

namespace vqreg {

namespace {

[[noreturn]] void failToWrite(const std::string& path) {
    throw CommandError(eExit::eWriteFailed,
                       fmt::format("{}: cannot be written: {}", path, std::strerror(errno)));
}

[[noreturn]] void failBecauseChanged(const std::string& file) {
    throw CommandError(eExit::eNegative, file + " has changed meanwhile; nothing has been written");
}

// What cannot be brought there is in place all the same.
void bringNamesToDisk(const std::string& file) {
    const std::string directory = std::filesystem::absolute(file).parent_path();
    const FileHandle handle(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (handle.isOpen()) {
        ::fsync(handle.get());
    }
}

// A new file beside the store's that is nobody else's, open to everybody as the store's is.
class NewFile {
public:
    NewFile(const std::string& file, const std::string& text)
        : m_path(file + ".restored-XXXXXX"), m_handle(::mkostemp(m_path.data(), O_CLOEXEC)) {
        if (!m_handle.isOpen()) {
            failToWrite(m_path);
        }
        if (!writeAll(m_handle.get(), text) || ::fchmod(m_handle.get(), 0666) != 0 ||
            ::fdatasync(m_handle.get()) != 0) {
            const int error = errno;
            ::unlink(m_path.c_str());
            errno = error;
            failToWrite(m_path);
        }
    }
    ~NewFile() {
        if (!m_path.empty()) {
            ::unlink(m_path.c_str());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // Takes the place of the file, and is there to stay.
    bool replace(const std::string& file) {
        const bool isReplaced = isMoved(::rename(m_path.c_str(), file.c_str()) == 0);
        if (isReplaced) {
            bringNamesToDisk(file);
        }
        return isReplaced;
    }

    // Takes a name that nobody has. Not every file system can do that in one step.
    bool take(const std::string& name) {
        const bool isRenamed =
            ::renameat2(AT_FDCWD, m_path.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0;
        return isMoved(isRenamed || (errno == EINVAL && ::link(m_path.c_str(), name.c_str()) == 0 &&
                                     ::unlink(m_path.c_str()) == 0));
    }

private:
    bool isMoved(bool moved) {
        if (moved) {
            m_path.clear();
        }
        return moved;
    }

    std::string m_path;
    const FileHandle m_handle;
};

// Keeps the malformed text under the first name that is free, and says which.
std::string keepMalformed(const std::string& file, const std::string& text) {
    NewFile kept(file, text);
    for (int number = 0; number < 1000; ++number) {
        std::string name = file + ".malformed" + (number == 0 ? "" : "." + std::to_string(number));
        if (kept.take(name)) {
            return name;
        }
        if (errno != EEXIST) {
            failToWrite(name);
        }
    }
    failToWrite(file + ".malformed");
}

bool isStillAt(int fd, const std::string& path) {
    const auto opened = FileIdentity::of(fd);
    return opened && opened == FileIdentity::of(path);
}

// Others that restore the file keep out while it is locked. A file system that knows no locks does
// without.
void lock(int fd, const StoreOptions& options, const std::string& file) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(options.timeoutSeconds);
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        if (Clock::now() >= end) {
            throw CommandError(eExit::eLocked, file + ": another process has locked the file");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace

StoreOptions wholeFile(const StoreOptions& options, const Key& top) {
    StoreOptions whole = options;
    whole.wholeFile = true;
    if (!top.keys.empty()) {
        whole.root = top.keys.begin()->second.name;
    }
    return whole;
}

void replaceMalformed(const StoreOptions& options, const std::string& text,
                      const std::string* seen) {
    const std::string file = storeFile(options);
    NewFile restored(file, text);
    const FileHandle old(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!old.isOpen()) {
        if (seen) {
            failBecauseChanged(file);
        }
        if (!restored.take(file)) {
            errno == EEXIST ? failBecauseChanged(file) : failToWrite(file);
        }
        return;
    }
    lock(old.get(), options, file);
    const std::string malformed = readStoreFile(file, rootName(options));
    if (!isStillAt(old.get(), file) || (seen && malformed != *seen) ||
        parseConfigText(malformed).isReadable()) {
        failBecauseChanged(file);
    }
    const std::string kept = keepMalformed(file, malformed);
    if (!isStillAt(old.get(), file) || !restored.replace(file)) {
        const int error = errno;
        ::unlink(kept.c_str());
        errno = error;
        isStillAt(old.get(), file) ? failToWrite(file) : failBecauseChanged(file);
    }
    note("the malformed text is kept in " + kept);
}

void makeReread(const StoreOptions& options, const Key& top) {
    if (!top.keys.empty()) {
        StoreSession(wholeFile(options, top)).reload();
    }
}

}  // namespace vqreg
