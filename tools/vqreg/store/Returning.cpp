#include "tools/vqreg/store/Returning.h"

#include <poll.h>
#include <sys/inotify.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>

#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

namespace {

// Between two looks at most: what is missed is found with the next one.
constexpr auto kLongestWait = std::chrono::milliseconds(250);

// None while the file is missing or cannot be understood.
Key topOf(const std::string& file) {
    const std::optional<std::string> text = textOfFile(file);
    ConfigText parsed = parseConfigText(text.value_or(""));
    return parsed.isReadable() ? std::move(parsed.top) : Key();
}

bool isThere(const Key& top, const Change& change) {
    const Key* const key = findKey(top, change.path);
    return key && (change.isOfKey() || key->values.contains(folded(change.value().name)));
}

// Wakes with every change in the file's directory. Where the system has no handle for that, poll
// takes no notice of it and the time alone counts.
class DirectoryEvents {
public:
    explicit DirectoryEvents(const std::string& file)
        : m_handle(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        const std::string directory = std::filesystem::path(file).parent_path().string();
        ::inotify_add_watch(m_handle.get(), directory.c_str(),
                            IN_MOVED_TO | IN_CLOSE_WRITE | IN_CREATE);
    }

    void wait(std::chrono::milliseconds limit) {
        pollfd source = {m_handle.get(), POLLIN, 0};
        if (::poll(&source, 1, static_cast<int>(limit.count())) > 0) {
            char events[4096];
            while (::read(m_handle.get(), events, sizeof events) > 0) {
            }
        }
    }

private:
    const FileHandle m_handle;
};

}  // namespace

bool deletesAny(const std::vector<Change>& changes) {
    return std::any_of(changes.begin(), changes.end(),
                       [](const Change& change) { return change.kind == Change::eKind::eDeleted; });
}

void warnOfReturn(const Openers& openers) {
    const auto warn = [](const std::string& who) {
        note("open in " + who +
             ": a value that is deleted here comes back with its next change; stop it first");
    };
    for (const OpenIn& process : openers.processes) {
        warn(process.text());
    }
    if (openers.hidden > 0) {
        warn(openers.hiddenText("more "));
    }
}

std::vector<Change> waitForReturn(const std::string& file, const Path& above,
                                  const std::vector<Change>& changes, double seconds) {
    using Clock = std::chrono::steady_clock;
    std::vector<Change> deleted;
    std::copy_if(changes.begin(), changes.end(), std::back_inserter(deleted),
                 [](const Change& change) { return change.kind == Change::eKind::eDeleted; });
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    DirectoryEvents events(file);
    for (;;) {
        const Key top = topOf(file);
        const Key* const base = findKey(top, above);
        std::vector<Change> returned;
        std::copy_if(deleted.begin(), deleted.end(), std::back_inserter(returned),
                     [&](const Change& change) { return base && isThere(*base, change); });
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (!returned.empty() || left.count() <= 0 || deleted.empty()) {
            return returned;
        }
        events.wait(std::min(left, std::chrono::milliseconds(kLongestWait)));
    }
}

}  // namespace vqreg
