// vqreg restore: brings the text before the last change back.
#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileIdentity.h"
#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/OpenIn.h"
#include "tools/vqreg/store/Returning.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/store/WholeFile.h"
#include "tools/vqreg/terminal/Confirm.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

// Of lines that cannot be read.
constexpr std::size_t kMostLines = 20;
constexpr std::size_t kMostBytes = 200;

struct RestoreOptions {
    bool dryRun = false;
    bool force = false;
    ReportOptions report;
};

// Through the library, as a change like any other: no process writes over it unseen.
std::vector<Change> restoreByUpdate(const StoreOptions& options, const std::string& file,
                                    const Key& present, const Key& wanted) {
    const StoreOptions whole = wholeFile(options, present.keys.empty() ? wanted : present);
    StoreSession store(whole);
    store.begin();
    // Nobody else can write now, and the file may have changed since the difference was shown.
    const ConfigText current = parseConfigText(readStoreFile(file, rootName(whole)));
    std::vector<Change> changes = difference(current.top, wanted);
    store.apply(changes);
    store.end();
    return changes;
}

std::string lineAt(const std::string& text, std::size_t number) {
    std::size_t begin = 0;
    for (std::size_t line = 1; line < number; ++line) {
        begin = text.find('\n', begin) + 1;
    }
    return text.substr(begin, text.find('\n', begin) - begin);
}

// What a malformed file has and its backup does not, and what nobody can read.
void tellOfLoss(const std::string& text, const ConfigText& malformed, const Key& wanted) {
    if (malformed.isReadable()) {
        return;
    }
    for (const Change& change : difference(malformed.all(), wanted)) {
        if (change.kind == Change::eKind::eDeleted && !change.isOfKey()) {
            note("the backup lacks " + lineOf(change).substr(2));
        }
    }
    std::size_t shown = 0;
    for (const std::size_t line : malformed.lostLines) {
        if (++shown > kMostLines) {
            note(fmt::format("{} more lines cannot be read",
                             malformed.lostLines.size() - kMostLines));
            return;
        }
        note(fmt::format("line {} cannot be read, and the backup may lack it: {}", line,
                         printable(lineAt(text, line).substr(0, kMostBytes))));
    }
}

// A pipe that is closed shall not keep the rest from being done.
void show(const std::vector<Change>& changes) {
    try {
        printChanges(changes, {}, false);
        Output::standard().flush();
    } catch (const ClosedPipe&) {
    }
}

// The backup's text, which must be one that may take the file's place.
std::string backupText(const StoreOptions& options, const std::string& backup) {
    std::optional<std::string> text = readStoreFileIfAny(backup, rootName(options));
    if (!text) {
        throw CommandError(eExit::eUnavailable, backup + ": there is no backup");
    }
    const ConfigText parsed = parseConfigText(*text);
    if (const Finding* const fault = parsed.firstError()) {
        throw CommandError(eExit::eMalformed, format(backup, *fault));
    }
    if (parsed.top.keys.empty()) {
        throw CommandError(eExit::eMalformed,
                           backup +
                               ": the backup names no key, and would replace everything by "
                               "nothing");
    }
    return std::move(*text);
}

void restore(const RestoreOptions& options, Context& context) {
    const std::string file = storeFile(context.store);
    const std::string text = backupText(context.store, file + ".bak");
    const ConfigText wanted = parseConfigText(text);
    ConfigText current;
    const bool isThere = FileIdentity::of(file).has_value();
    if (isThere) {
        const std::string present = readStoreFile(file, rootName(context.store));
        current = parseConfigText(present);
        tellOfLoss(present, current, wanted.top);
    }
    std::vector<Change> changes = difference(current.all(), wanted.top);
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
        replaceMalformed(context.store, text);
        makeReread(context.store, wanted.top);
    }
    reportChanges(context, options.report, {}, changes, true);
}

}  // namespace

void defineRestore(CLI::App& command, Context& context) {
    const auto options = std::make_shared<RestoreOptions>();
    command.add_flag("-n,--dry-run", options->dryRun, "Only show the difference");
    command.add_flag("-f", options->force, "Do not ask, not even on a terminal");
    addJsonOption(command, options->report);
    addVerifyOption(command, options->report);
    command.footer(
        "The backup is the text before the last change. It is applied as a change of its own, so\n"
        "that a second restore brings the present text back.");
    command.callback([options, &context] { restore(*options, context); });
}

}  // namespace vqreg
