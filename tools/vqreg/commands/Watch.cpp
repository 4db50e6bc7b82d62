// vqreg watch: prints each change of the store as it happens.
#include <fmt/format.h>
#include <sys/stat.h>

#include <memory>
#include <tuple>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/change/TreeInput.h"
#include "tools/vqreg/commands/Commands.h"
#include "tools/vqreg/store/ChangeSignals.h"
#include "tools/vqreg/terminal/Output.h"

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
    StoreReader(const StoreOptions& options, const Names& path)
        : m_file(storeFile(options)), m_path(rootNames(options)) {
        m_path.insert(m_path.end(), path.begin(), path.end());
    }

    // The key as it is now. None when there is nothing new, and while the file is malformed, which
    // is said once. Where it is missing, it may be just being replaced: only if it still is at the
    // next slow poll does that count as empty.
    std::optional<Key> read(bool isSlowPoll) {
        const std::optional<Identity> identity = identityOf();
        if (isSlowPoll && identity && identity == m_identity) {
            return std::nullopt;
        }
        m_identity = identity;
        std::optional<std::string> text = content();
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
    // Inode, size and time of the last change.
    using Identity = std::tuple<ino_t, off_t, time_t, long>;

    std::optional<Identity> identityOf() const {
        struct stat status {};
        if (::stat(m_file.c_str(), &status) != 0) {
            return std::nullopt;
        }
        return Identity{status.st_ino, status.st_size, status.st_mtim.tv_sec,
                        status.st_mtim.tv_nsec};
    }

    std::optional<std::string> content() const {
        try {
            return readInput(m_file);
        } catch (const CommandError&) {
            return std::nullopt;
        }
    }

    const std::string m_file;
    Names m_path;
    std::optional<Identity> m_identity;
    std::optional<std::string> m_text;
    bool m_wasMissing = false;
};

void print(const std::vector<Change>& changes, const Context& context, bool json) {
    printChanges(changes, rootNames(context.store), json);
    Output::standard().flush();
}

void runWatch(Context& context, const WatchOptions& options) {
    StoreSession session(context.store);
    const Names path = session.tidied(splitPath(options.key));
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

void addWatch(CLI::App& app, Context& context) {
    CLI::App* const command = app.add_subcommand("watch", "Print each change as it happens");
    const auto options = std::make_shared<WatchOptions>();
    command->add_option("KEY", options->key, "The key; without it, the root key")->type_name("");
    command->add_flag("--initial", options->initial, "First print what is there, as created");
    command->add_flag("--json", options->json, "One JSON object per line");
    command->footer(
        "A line begins with + for what is created, ~ for a value that changes, - for what is\n"
        "deleted. Two changes in quick succession may show as one. SIGINT and SIGTERM end it.");
    command->callback([&context, options] { runWatch(context, *options); });
}

}  // namespace vqreg
