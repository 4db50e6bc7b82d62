#include "tools/vqreg/store/Returning.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <iterator>

#include "portable/FileNews.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

namespace {

// Between two looks at most: what is missed is found with the next one.
constexpr std::chrono::milliseconds kLongestWait{250};

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
    VQRegLib::CFileNews news;
    (void)news.open(file);  // without it, the time alone counts
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
        pollfd source = {news.descriptor(), POLLIN, 0};
        ::poll(&source, 1, static_cast<int>(std::min(left, kLongestWait).count()));
        (void)news.take();
    }
}

}  // namespace vqreg
