// vqreg restore: brings the text before the last change back.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

#include "tools/vqreg/Commands.h"
#include "tools/vqreg/ConfigText.h"
#include "tools/vqreg/Confirm.h"
#include "tools/vqreg/ExitCode.h"
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

// Through the library, as a change like any other: no process writes over it unseen.
void restoreByUpdate(const StoreOptions& options, const std::string& file, const Key& wanted) {
    StoreOptions whole = options;
    whole.wholeFile = true;
    if (!wanted.keys.empty()) {
        whole.root = wanted.keys.begin()->second.name;  // opening creates no key then that goes
    }
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

// The library refuses a malformed file, and nobody can write one that it refuses: it is replaced
// without the lock. Every process that has met it reads again at its next call.
void restoreByReplacing(const StoreOptions& options, const std::string& file,
                        const std::string& text) {
    const std::string temporary = file + ".restored";
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
        const int error = errno;
        ::unlink(temporary.c_str());
        errno = error;
        failToWrite(temporary);
    }
    ::chmod(temporary.c_str(), 0666);
    if (exists(file)) {
        const std::string kept = file + ".malformed";
        if (::rename(file.c_str(), kept.c_str()) != 0) {
            failToWrite(kept);
        }
        note("the malformed text is kept in " + kept);
    }
    if (::rename(temporary.c_str(), file.c_str()) != 0) {
        failToWrite(file);
    }
    if (options.notify) {
        StoreSession(options).announce();
    }
}

void restore(const RestoreOptions& options, const Context& context) {
    const std::string file = storeFile(context.store);
    const std::string backup = file + ".bak";
    const std::string text =
        exists(backup) ? readStoreFile(backup, rootName(context.store))
                       : throw CommandError(eExit::eUnavailable, backup + ": there is no backup");
    const ConfigText wanted = parseConfigText(text);
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
    if (options.dryRun || !isNeeded ||
        (!options.force && !confirm("restore " + file + " from its backup?"))) {
        return;
    }
    if (isUsable) {
        restoreByUpdate(context.store, file, wanted.top);
    } else {
        restoreByReplacing(context.store, file, text);
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
