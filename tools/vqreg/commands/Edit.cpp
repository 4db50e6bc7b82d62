// vqreg edit: a part of the store in the user's editor.
#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/change/Changing.h"
#include "tools/vqreg/change/PlacedTree.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/OpenIn.h"
#include "tools/vqreg/store/Returning.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/store/WholeFile.h"
#include "tools/vqreg/terminal/Confirm.h"
#include "tools/vqreg/terminal/Editor.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

namespace {

struct EditOptions {
    std::string key = "/";
    bool yes = false;
    ReportOptions report;
};

// The key, and its path without what does not belong to it.
std::pair<Path, Key> load(const Context& context, const Path& given) {
    StoreSession session(context.store);
    const Path path = session.tidied(given);
    std::optional<Key> key = session.load(path);
    if (!key) {
        throw CommandError(eExit::eNegative, nameOfKey(path) + " does not exist");
    }
    return {path, std::move(*key)};
}

std::string textOf(const Context& context, const Path& path, const Key& key) {
    return composeConfigText(topAround(fullPath(context.store, path), key));
}

// An editor that failed may have left nothing, and nobody means a store without a key.
void checkHasKey(const std::string& file, const ConfigText& parsed) {
    if (parsed.isReadable() && parsed.top.keys.empty()) {
        throw CommandError(eExit::eWrongKind, file + ": the text has no key line");
    }
}

// None when it has not been changed.
std::optional<PlacedTree> edited(const Context& context, const Path& path,
                                 const std::string& before, const TemporaryText& file) {
    PlacedTree tree;
    const bool isChanged = editText(file, before, [&](const std::string& text) {
        checkHasKey(file.path(), parseConfigText(text));
        tree = placedTree(context.store, file.path(), text, path);
        checkRules(context.store, tree);
    });
    return isChanged ? std::optional(std::move(tree)) : std::nullopt;
}

// A session of its own: that of before would keep what other processes have deleted meanwhile.
void apply(const Context& context, const Path& path, const Key& before,
           const std::vector<Change>& changes) {
    StoreSession session(context.store);
    session.begin();
    const std::optional<Key> now = session.load(path);
    if (!now || !difference(before, *now).empty()) {
        throw CommandError(eExit::eNegative,
                           "the store has changed meanwhile; nothing has been written");
    }
    session.apply(changes);
    session.end();
}

// On standard error.
void showChanges(const Context& context, const std::vector<Change>& changes, const Path& above) {
    for (const Change& change : changes) {
        // Nobody can be told where this fails.
        std::fputs((lineOf(change, above) + '\n').c_str(), stderr);
    }
    if (deletesAny(changes)) {
        warnOfReturn(processesWith(storeFile(context.store)));
    }
}

void editKey(Context& context, const EditOptions& options, const Path& path, const Key& before,
             TemporaryText& file) {
    const std::string text = textOf(context, path, before);
    const std::optional<PlacedTree> tree = edited(context, path, text, file);
    const std::vector<Change> changes =
        tree ? difference(before, tree->key, path) : std::vector<Change>();
    if (changes.empty()) {
        note("nothing has been changed");
        return;
    }
    showChanges(context, changes, rootPath(context.store));
    if (!options.yes && !confirm("Make these changes?")) {
        throw CommandError(eExit::eNegative, "nothing has been changed");
    }
    apply(context, path, before, changes);
    reportChanges(context, options.report, rootPath(context.store), changes, true);
}

// The store's text, when it is malformed.
std::optional<std::string> malformedText(const StoreOptions& options) {
    std::optional<std::string> text = readStoreFileIfAny(storeFile(options), rootName(options));
    return text && !parseConfigText(*text).isReadable() ? text : std::nullopt;
}

ConfigText checkedText(const std::string& file, const std::string& text) {
    ConfigText parsed = parseConfigText(text);
    printFindings(file, parsed.findings);
    checkClean(file, parsed);
    checkHasKey(file, parsed);
    return parsed;
}

// The library refuses the file, so the text itself is edited, all of it, and nothing else takes its
// place than a text that the library takes.
void editMalformed(Context& context, const EditOptions& options, const std::string& before) {
    const std::string file = storeFile(context.store);
    const ConfigText present = parseConfigText(before);
    printFindings(file, present.findings);
    note(file + ": the text is malformed; all of it is edited");
    TemporaryText edited(before);
    bool isChanged = false;
    std::vector<Change> changes;
    keepingText(edited, [&] {
        std::string text;
        ConfigText wanted;
        isChanged = editText(edited, before, [&](const std::string& now) {
            wanted = checkedText(edited.path(), now);
            text = now;
        });
        if (!isChanged) {
            return;
        }
        changes = difference(present.all(), wanted.top);
        showChanges(context, changes, {});
        if (!options.yes && !confirm("Write this text?")) {
            throw CommandError(eExit::eNegative, "nothing has been changed");
        }
        replaceMalformed(context.store, text, &before);
        makeReread(context.store, wanted.top);
    });
    if (!isChanged) {
        throw CommandError(eExit::eMalformed,
                           file + ": the text is malformed still; nothing has been changed");
    }
    reportChanges(context, options.report, {}, changes, true);
}

void runEdit(Context& context, const EditOptions& options) {
    if (const auto malformed = malformedText(context.store)) {
        editMalformed(context, options, *malformed);
        return;
    }
    const auto [path, before] = load(context, splitPath(options.key));
    TemporaryText file(textOf(context, path, before));
    keepingText(file, [&, &path = path, &before = before] {
        editKey(context, options, path, before, file);
    });
}

}  // namespace

void defineEdit(CLI::App& command, Context& context) {
    const auto options = std::make_shared<EditOptions>();
    command.add_option("KEY", options->key, "The key; without it, the root key")->type_name("");
    command.add_flag("-y,--yes", options->yes, "Do not ask before the changes are made");
    addVerifyOption(command, options->report);
    command.footer(
        "The editor is $VISUAL, else $EDITOR, else vi. What is deleted from the text is deleted\n"
        "from the store. Nothing is written when the store has changed meanwhile.\n"
        "Of a malformed file the whole text is edited, whatever the KEY, and written when it is\n"
        "well-formed.");
    command.callback([&context, options] { runEdit(context, *options); });
}

}  // namespace vqreg
