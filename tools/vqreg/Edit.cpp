// vqreg edit: a part of the store in the user's editor.
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "tools/vqreg/Changing.h"
#include "tools/vqreg/Commands.h"
#include "tools/vqreg/Confirm.h"
#include "tools/vqreg/Editor.h"
#include "tools/vqreg/ExitCode.h"
#include "tools/vqreg/Interruption.h"
#include "tools/vqreg/Output.h"
#include "tools/vqreg/Returning.h"
#include "tools/vqreg/TreeInput.h"

namespace vqreg {

namespace {

struct EditOptions {
    std::string key = "/";
    bool yes = false;
    ReportOptions report;
};

Key load(const Context& context, const Names& path) {
    StoreSession session(context.store);
    std::optional<Key> key = session.load(path);
    if (!key) {
        throw CommandError(eExit::eNegative,
                           fmt::format("there is no key \"{}\"", printable(joinPath(path))));
    }
    return std::move(*key);
}

std::string textOf(const Context& context, const Names& path, const Key& key) {
    Names full = rootNames(context.store);
    full.insert(full.end(), path.begin(), path.end());
    return composeConfigText(topAround(full, key));
}

// Until the text is well-formed. None when it has not been changed.
std::optional<PlacedTree> edited(const Context& context, const Names& path,
                                 const std::string& before, const TemporaryText& file) {
    for (;;) {
        runEditor(file.path());
        const std::string text = readInput(file.path());
        if (text == before) {
            return std::nullopt;
        }
        try {
            PlacedTree tree = placedTree(context.store, file.path(), text, path);
            checkRules(context.store, tree);
            return tree;
        } catch (const CommandError& error) {
            if (isatty(STDIN_FILENO) == 0) {
                throw;
            }
            note(error.what());
            if (!confirm("Edit the text again?")) {
                throw;
            }
        }
    }
}

// A session of its own: that of before would keep what other processes have deleted meanwhile.
void apply(const Context& context, const Names& path, const Key& before,
           const std::vector<Change>& changes) {
    StoreSession session(context.store);
    session.begin();
    const std::optional<Key> now = session.load(path);
    if (!now || !difference(before, *now).empty()) {
        throw CommandError(eExit::eNegative,
                           "the store has changed meanwhile; nothing has been written");
    }
    applyChanges(session, changes, [] {});
    session.end();
}

void editKey(Context& context, const EditOptions& options, const Names& path, const Key& before,
             TemporaryText& file) {
    const std::string text = textOf(context, path, before);
    const std::optional<PlacedTree> tree = edited(context, path, text, file);
    const std::vector<Change> changes =
        tree ? difference(before, tree->key, path) : std::vector<Change>();
    if (changes.empty()) {
        note("nothing has been changed");
        return;
    }
    for (const Change& change : changes) {
        // Nobody can be told where this fails.
        std::fputs((lineOf(change, rootNames(context.store)) + '\n').c_str(), stderr);
    }
    if (deletesAny(changes)) {
        warnOfReturn(processesWith(storeFile(context.store)));
    }
    if (!options.yes && !confirm("Make these changes?")) {
        throw CommandError(eExit::eNegative, "nothing has been changed");
    }
    apply(context, path, before, changes);
    reportChanges(context, options.report, rootNames(context.store), changes, true);
}

// Says where the text stays; nothing if the editor has removed it.
std::string keep(TemporaryText& file, const std::string& before) {
    file.keep();
    return ::access(file.path().c_str(), F_OK) == 0
               ? before + "the edited text is in " + file.path()
               : std::string();
}

void runEdit(Context& context, const EditOptions& options) {
    const Names path = splitPath(options.key);
    const Key before = load(context, path);
    TemporaryText file(textOf(context, path, before));
    try {
        editKey(context, options, path, before, file);
    } catch (const CommandError& error) {
        throw CommandError(error.code(), error.what() + keep(file, "; "));
    } catch (const Interrupted&) {
        const std::string place = keep(file, "");
        if (!place.empty()) {
            note(place);
        }
        throw;
    }
}

}  // namespace

void addEdit(CLI::App& app, Context& context) {
    CLI::App* const command = app.add_subcommand("edit", "Change a key in an editor");
    const auto options = std::make_shared<EditOptions>();
    command->add_option("KEY", options->key, "The key; without it, the root key")->type_name("");
    command->add_flag("-y,--yes", options->yes, "Do not ask before the changes are made");
    addVerifyOption(*command, options->report);
    command->footer(
        "The editor is $VISUAL, else $EDITOR, else vi. What is deleted from the text is deleted\n"
        "from the store. Nothing is written when the store has changed meanwhile.");
    command->callback([&context, options] { runEdit(context, *options); });
}

}  // namespace vqreg
