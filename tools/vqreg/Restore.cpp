// vqreg restore: brings the text before the last change back.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "tools/vqreg/Commands.h"
#include "tools/vqreg/ConfigText.h"
#include "tools/vqreg/Confirm.h"
#include "tools/vqreg/ExitCode.h"
#include "tools/vqreg/FileHandle.h"
#include "tools/vqreg/Output.h"
#include "tools/vqreg/StoreFault.h"
#include "tools/vqreg/TreeInput.h"

namespace vqreg {

namespace {

struct RestoreOptions {
    bool dryRun = false;
    bool force = false;
    bool json = false;
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
void restoreByUpdate(const StoreOptions& options, const std::string& file, const Key& wanted) {
    const StoreOptions whole = wholeFile(options, wanted);
    StoreSession store(whole);
    store.begin();
    // Nobody else can write now, and the file may have changed since the difference was shown.
    const ConfigText current = parseConfigText(readStoreFile(file, rootName(whole)));
    applyChanges(store, difference(current.top, wanted), [] {});
    store.end();
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

    // Takes the place of the file; of no file that has come into being if `flags` say so.
    bool moveTo(const std::string& file, unsigned flags) {
        if (::renameat2(AT_FDCWD, m_path.c_str(), AT_FDCWD, file.c_str(), flags) != 0) {
            return false;
        }
        m_path.clear();
        return true;
    }

private:
    std::string m_path;
    const FileHandle m_handle;
};

// The malformed text, under the first name that is free.
void keepMalformed(const std::string& file, const std::string& text) {
    NewFile kept(file, text);
    for (int number = 0; number < 1000; ++number) {
        const std::string name =
            file + ".malformed" + (number == 0 ? "" : "." + std::to_string(number));
        if (kept.moveTo(name, RENAME_NOREPLACE)) {
            note("the malformed text is kept in " + name);
            return;
        }
        if (errno != EEXIST) {
            failToWrite(name);
        }
    }
    failToWrite(file + ".malformed");
}

// The library refuses a malformed file, and nobody can write one that it refuses: it is replaced
// without the store's lock. Others that restore it are kept out by a lock on the file itself. Every
// process that has met the file reads again at its next call.
void restoreByReplacing(const StoreOptions& options, const std::string& file,
                        const std::string& text) {
    NewFile restored(file, text);
    const FileHandle old(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (old.isOpen()) {
        struct stat locked {};
        struct stat present {};
        if (::flock(old.get(), LOCK_EX) != 0 || ::fstat(old.get(), &locked) != 0 ||
            ::stat(file.c_str(), &present) != 0 || locked.st_ino != present.st_ino) {
            failBecauseChanged(file);
        }
        const std::string malformed = readStoreFile(file, rootName(options));
        if (parseConfigText(malformed).isReadable()) {
            failBecauseChanged(file);
        }
        keepMalformed(file, malformed);
        if (!restored.moveTo(file, 0)) {
            failToWrite(file);
        }
    } else if (!restored.moveTo(file, RENAME_NOREPLACE)) {
        errno == EEXIST ? failBecauseChanged(file) : failToWrite(file);
    }
}

void announceRestored(const StoreOptions& options, const Key& top) {
    if (options.notify && !top.keys.empty()) {
        StoreSession(wholeFile(options, top)).announce();
    }
}

void restore(const RestoreOptions& options, const Context& context) {
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
    const std::vector<Change> changes = difference(current.top, wanted.top);
    const bool isUsable = isThere && current.isReadable();
    printChanges(changes, {}, options.json);
    Output::standard().flush();
    const bool isNeeded = !isUsable || !changes.empty();
    if (options.dryRun || !isNeeded) {
        return;
    }
    if (!options.force && !confirm("restore " + file + " from its backup?")) {
        throw CommandError(eExit::eNegative, "nothing has been restored");
    }
    if (isUsable) {
        restoreByUpdate(context.store, file, wanted.top);
    } else {
        restoreByReplacing(context.store, file, *text);
        announceRestored(context.store, wanted.top);
    }
}

}  // namespace

void addRestore(CLI::App& app, Context& context) {
    const auto options = std::make_shared<RestoreOptions>();
    CLI::App* const command =
        app.add_subcommand("restore", "Show what the backup would change, and bring it back");
    command->add_flag("-n,--dry-run", options->dryRun, "Only show the difference");
    command->add_flag("-f", options->force, "Do not ask, not even on a terminal");
    command->add_flag("--json", options->json, "Show the difference as one JSON object per line");
    command->footer(
        "The backup is the text before the last change. It is applied as a change of its own, so\n"
        "that a second restore brings the present text back.");
    command->callback([options, &context] { restore(*options, context); });
}

}  // namespace vqreg
