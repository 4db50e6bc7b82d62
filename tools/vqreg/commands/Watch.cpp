// vqreg watch: prints each change of the store as it happens.
#include <fmt/format.h>

#include <memory>

#include "tools/vqreg/base/FileIdentity.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/ChangeSignals.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

namespace {

constexpr auto kSlowPoll = std::chrono::seconds(1);

struct WatchOptions {
    std::string key = "/";
    bool initial = false;
    bool json = false;
};

// Reads the file itself: a session keeps in its memory what other processes delete.
class StoreReader {
public:
    StoreReader(const StoreOptions& options, const Path& path)
        : m_file(storeFile(options)), m_path(fullPath(options, path)) {}

    // The key as it is now. None when there is nothing new, and while the file is malformed, which
    // is said once. Where it is missing, it may be just being replaced: only if it still is at the
    // next slow poll does that count as empty.
    std::optional<Key> read(bool isSlowPoll) {
        const std::optional<FileIdentity> identity = FileIdentity::of(m_file);
        if (isSlowPoll && identity && identity == m_identity) {
            return std::nullopt;
        }
        m_identity = identity;
        std::optional<std::string> text = textOfFile(m_file);
        if (!text && !(isSlowPoll && m_wasMissing)) {
            m_wasMissing = true;
            return std::nullopt;
        }
        m_wasMissing = !text;
        if (!text) {
            text = std::string();
        }
        if (m_text == text) {
            return std::nullopt;
        }
        m_text = std::move(text);
        const ConfigText parsed = parseConfigText(*m_text);
        if (!parsed.isReadable()) {
            printFindings(m_file, parsed.findings);
            return std::nullopt;
        }
        const Key* const key = findKey(parsed.top, m_path);
        return key ? *key : Key();
    }

private:
    const std::string m_file;
    const Path m_path;
    std::optional<FileIdentity> m_identity;
    std::optional<std::string> m_text;
    bool m_wasMissing = false;
};

void print(const std::vector<Change>& changes, const Context& context, bool json) {
    printChanges(changes, rootPath(context.store), json);
    Output::standard().flush();
}

void runWatch(Context& context, const WatchOptions& options) {
    StoreSession session(context.store);
    const Path path = session.tidied(splitPath(options.key));
    // First of all: what happens from here on is told or read.
    ChangeSignals signals(session.session(), storeFile(context.store));
    StoreReader reader(context.store, path);
    Key known = reader.read(false).value_or(Key());
    if (!session.hasKey(path)) {
        note(nameOfKey(path) + " does not exist yet");
    }
    if (options.initial) {
        print(difference(Key(), known, path), context, options.json);
    }
    for (;;) {
        const ChangeSignals::eNews news = signals.wait(kSlowPoll);
        if (news == ChangeSignals::eNews::eEnd) {
            return;
        }
        std::optional<Key> now = reader.read(news == ChangeSignals::eNews::eNothing);
        if (now) {
            print(difference(known, *now, path), context, options.json);
            known = std::move(*now);
        }
    }
}

}  // namespace

void defineWatch(CLI::App& command, Context& context) {
    const auto options = std::make_shared<WatchOptions>();
    command.add_option("KEY", options->key, "The key; without it, the root key")->type_name("");
    command.add_flag("--initial", options->initial, "First print what is there, as created");
    command.add_flag("--json", options->json, "One JSON object per line");
    command.footer(
        "A line begins with + for what is created, ~ for a value that changes, - for what is\n"
        "deleted. Two changes in quick succession may show as one. SIGINT and SIGTERM end it.");
    command.callback([&context, options] { runWatch(context, *options); });
}

}  // namespace vqreg
