// vqreg restore: brings the text before the last change back.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "tools/vqreg/Changing.h"
#include "tools/vqreg/Commands.h"
#include "tools/vqreg/ConfigText.h"
#include "tools/vqreg/Confirm.h"
#include "tools/vqreg/ExitCode.h"
#include "tools/vqreg/FileHandle.h"
#include "tools/vqreg/Output.h"
#include "tools/vqreg/Returning.h"
#include "tools/vqreg/StoreFault.h"
#include "tools/vqreg/TreeInput.h"

namespace vqreg {

namespace {

struct RestoreOptions {
    bool dryRun = false;
    bool force = false;
    ReportOptions report;
};

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

// A session on all keys of a file, whatever their names. Opening it creates none.
StoreOptions wholeFile(const StoreOptions& options, const Key& top) {
    StoreOptions whole = options;
    whole.wholeFile = true;
    if (!top.keys.empty()) {
        whole.root = top.keys.begin()->second.name;
    }
    return whole;
}

// Through the library, as a change like any other: no process writes over it unseen.
std::vector<Change> restoreByUpdate(const StoreOptions& options, const std::string& file,
                                    const Key& present, const Key& wanted) {
    const StoreOptions whole = wholeFile(options, present.keys.empty() ? wanted : present);
    StoreSession store(whole);
    store.begin();
    // Nobody else can write now, and the file may have changed since the difference was shown.
    const ConfigText current = parseConfigText(readStoreFile(file, rootName(whole)));
    std::vector<Change> changes = difference(current.top, wanted);
    applyChanges(store, changes, [] {});
    store.end();
    return changes;
}

[[noreturn]] void failToWrite(const std::string& path) {
    throw CommandError(eExit::eWriteFailed,
                       fmt::format("{}: cannot be written: {}", path, std::strerror(errno)));
}

[[noreturn]] void failBecauseChanged(const std::string& file) {
    throw CommandError(eExit::eNegative,
                       file + " has changed meanwhile; nothing has been restored");
}

// A new file beside the store's that is nobody else's, open to everybody as the store's is.
class NewFile {
public:
    NewFile(const std::string& file, const std::string& text)
        : m_path(file + ".restored-XXXXXX"), m_handle(::mkostemp(m_path.data(), O_CLOEXEC)) {
        if (!m_handle.isOpen()) {
            failToWrite(m_path);
        }
        if (!writeAll(m_handle.get(), text) || ::fchmod(m_handle.get(), 0666) != 0) {
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

    // Takes the place of the file.
    bool replace(const std::string& file) {
        return isMoved(::rename(m_path.c_str(), file.c_str()) == 0);
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
    struct stat opened {};
    struct stat present {};
    return ::fstat(fd, &opened) == 0 && ::stat(path.c_str(), &present) == 0 &&
           opened.st_dev == present.st_dev && opened.st_ino == present.st_ino &&
           opened.st_mtim.tv_sec == present.st_mtim.tv_sec &&
           opened.st_mtim.tv_nsec == present.st_mtim.tv_nsec;
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

// The library refuses a malformed file, so that the store's lock cannot be had: the file is replaced
// without it.
void restoreByReplacing(const StoreOptions& options, const std::string& file,
                        const std::string& text) {
    NewFile restored(file, text);
    const FileHandle old(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!old.isOpen()) {
        if (!restored.take(file)) {
            errno == EEXIST ? failBecauseChanged(file) : failToWrite(file);
        }
        return;
    }
    lock(old.get(), options, file);
    const std::string malformed = readStoreFile(file, rootName(options));
    if (!isStillAt(old.get(), file) || parseConfigText(malformed).isReadable()) {
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

// A change that changes nothing: it renews the stamp. Without it, processes that have not met the
// malformed text would not look at the file, and their next change would write over it.
void renewStamp(const StoreOptions& options, const Key& top) {
    if (top.keys.empty()) {
        return;
    }
    const Path passing = {"vqreg-restore"};
    StoreSession store(wholeFile(options, top));
    store.begin();
    store.createKey(passing);
    store.removeKey(passing);
    store.end();
}

// A pipe that is closed shall not keep the rest from being done.
void show(const std::vector<Change>& changes) {
    try {
        printChanges(changes, {}, false);
        Output::standard().flush();
    } catch (const ClosedPipe&) {
    }
}

void restore(const RestoreOptions& options, Context& context) {
    const std::string file = storeFile(context.store);
    const std::string backup = file + ".bak";
    const std::optional<std::string> text = readStoreFileIfAny(backup, rootName(context.store));
    if (!text) {
        throw CommandError(eExit::eUnavailable, backup + ": there is no backup");
    }
    const ConfigText wanted = parseConfigText(*text);
    for (const Finding& finding : wanted.findings) {
        if (finding.isError) {
            throw CommandError(eExit::eMalformed, format(backup, finding));
        }
    }
    ConfigText current;
    const bool isThere = exists(file);
    if (isThere) {
        current = parseConfigText(readStoreFile(file, rootName(context.store)));
    }
    std::vector<Change> changes = difference(current.top, wanted.top);
    const bool isUsable = isThere && current.isReadable();
    if (!options.report.json) {
        show(changes);
    }
    const bool isNeeded = !isUsable || !changes.empty();
    if (options.dryRun || !isNeeded) {
        reportChanges(context, {options.report.json, {}}, {}, changes, isNeeded);
        return;
    }
    if (deletesAny(changes)) {
        warnOfReturn(processesWith(file));
    }
    if (!options.force && !confirm("restore " + file + " from its backup?")) {
        throw CommandError(eExit::eNegative, "nothing has been restored");
    }
    if (isUsable) {
        changes = restoreByUpdate(context.store, file, current.top, wanted.top);
    } else {
        restoreByReplacing(context.store, file, *text);
        renewStamp(context.store, wanted.top);
    }
    reportChanges(context, options.report, {}, changes, true);
}

}  // namespace

void addRestore(CLI::App& app, Context& context) {
    const auto options = std::make_shared<RestoreOptions>();
    CLI::App* const command =
        app.add_subcommand("restore", "Show what the backup would change, and bring it back");
    command->add_flag("-n,--dry-run", options->dryRun, "Only show the difference");
    command->add_flag("-f", options->force, "Do not ask, not even on a terminal");
    addJsonOption(*command, options->report);
    addVerifyOption(*command, options->report);
    command->footer(
        "The backup is the text before the last change. It is applied as a change of its own, so\n"
        "that a second restore brings the present text back.");
    command->callback([options, &context] { restore(*options, context); });
}

}  // namespace vqreg
