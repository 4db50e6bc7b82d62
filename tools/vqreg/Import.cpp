// vqreg import: puts a text into the store, in one update.
#include <fmt/format.h>

#include <memory>
#include <optional>

#include "tools/vqreg/Commands.h"
#include "tools/vqreg/ExitCode.h"
#include "tools/vqreg/Interruption.h"
#include "tools/vqreg/JsonText.h"
#include "tools/vqreg/Output.h"
#include "tools/vqreg/Progress.h"
#include "tools/vqreg/StoreFault.h"
#include "tools/vqreg/TreeInput.h"

namespace vqreg {

namespace {

struct ImportOptions {
    std::string file;
    std::optional<std::string> key;
    bool json = false;
    bool merge = false;
    bool replace = false;
    bool dryRun = false;
};

PlacedTree readJsonTree(const ImportOptions& options, const std::string& text) {
    JsonText parsed = parseJsonText(text);
    printFindings(options.file, parsed.findings);
    if (!parsed.isReadable()) {
        throw CommandError(eExit::eMalformed, options.file + ": the text is malformed");
    }
    const std::string path = options.key ? *options.key : parsed.path.value_or("/");
    return {splitPath(path), std::move(parsed.key)};
}

// What the store has at the place, without changing or making anything.
std::optional<Key> currentTree(const Context& context, const Names& path) {
    const std::string file = storeFile(context.store);
    const std::optional<std::string> text = readStoreFileIfAny(file, rootName(context.store));
    if (!text) {
        return std::nullopt;
    }
    const ConfigText parsed = parseConfigText(*text);
    if (!parsed.isReadable()) {
        parsedTop(file, *text);  // prints why, and throws
    }
    Names full = rootNames(context.store);
    full.insert(full.end(), path.begin(), path.end());
    const Key* const found = findKey(parsed.top, full);
    return found ? std::optional(*found) : std::nullopt;
}

// What is to be done to a store that has `current` at the place. Throws where a merge would have to
// delete something: a key in the place of a value, or the other way round.
std::vector<Change> plan(const ImportOptions& options, const Names& above, const PlacedTree& tree,
                         const std::optional<Key>& current) {
    const Key base = current.value_or(Key());
    if (!options.replace) {
        Names full = above;
        full.insert(full.end(), tree.path.begin(), tree.path.end());
        const std::vector<std::string> conflicts = kindConflicts(base, tree.key, full);
        for (const std::string& conflict : conflicts) {
            note("a key here is a value there: " + conflict);
        }
        if (!conflicts.empty()) {
            throw CommandError(eExit::eWrongKind,
                               options.file +
                                   ": keys and values cannot be merged; nothing has "
                                   "been changed");
        }
    }
    std::vector<Change> changes =
        difference(base, options.replace ? tree.key : merged(base, tree.key), tree.path);
    if (!current && !tree.path.empty()) {
        changes.insert(changes.begin(), {Change::eKind::eCreated, tree.path, {}, {}});
    }
    return changes;
}

void importTree(Context& context, const ImportOptions& options, const PlacedTree& tree) {
    StoreOptions store = context.store;
    store.create = true;
    std::optional<Interruption> interruption;
    StoreSession session(store);
    session.begin();
    const std::vector<Change> changes =
        plan(options, rootNames(context.store), tree, session.load(tree.path));
    interruption.emplace();
    {
        Progress progress(changes.size(), "changes");
        applyChanges(session, changes, [&] {
            progress.step();
            Interruption::check();
        });
    }
    Interruption::check();
    interruption->stay();  // what is written is written, and others are to be told
    session.end();
}

void runImport(Context& context, const ImportOptions& options) {
    const std::string text = readInput(options.file);
    const PlacedTree tree = options.json ? readJsonTree(options, text)
                                         : placedTree(context.store, options.file, text,
                                                      splitPath(options.key.value_or("/")));
    checkRules(context.store, tree);
    if (!options.dryRun) {
        importTree(context, options, tree);
        return;
    }
    const Names above = rootNames(context.store);
    printChanges(plan(options, above, tree, currentTree(context, tree.path)), above, false);
}

}  // namespace

void addImport(CLI::App& app, Context& context) {
    CLI::App* const command = app.add_subcommand("import", "Put a text into the store");
    const auto options = std::make_shared<ImportOptions>();
    command->add_option("FILE", options->file, "The text; - is standard input")
        ->required()
        ->type_name("");
    command
        ->add_option("--key", options->key,
                     "The one key that the text is about; without it, the root key, or the "
                     "\"path\" of a JSON text")
        ->type_name("KEY");
    command->add_flag("--json", options->json, "The text is JSON, as `export --json` prints it");
    CLI::Option* const merge =
        command->add_flag("--merge", options->merge, "Keep what only the store has (the default)");
    command->add_flag("--replace", options->replace, "Delete what only the store has")
        ->excludes(merge);
    command->add_flag("--dry-run", options->dryRun, "Print the changes and make none");
    command->footer(
        "The whole text is checked before the first change, and all changes become one write.");
    command->callback([&context, options] { runImport(context, *options); });
}

}  // namespace vqreg
