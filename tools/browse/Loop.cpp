#include "tools/browse/Loop.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "tools/browse/View.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/StoreFault.h"
#include "tools/vqreg/store/StoreText.h"

namespace vqreg {

namespace {

constexpr auto kSlowPoll = std::chrono::seconds(1);
constexpr int kLastWords = 100;  // milliseconds
constexpr int kShare = 4;        // reading takes one of so many parts of the time at most

// The store as it must be to be shown at all.
void checkStore(const StoreOptions& options, const std::string& key) {
    const std::string file = storeFile(options);
    const std::string root = rootName(options);
    const std::string text = readStoreFile(file, root);
    if (!parseConfigText(text).isReadable()) {
        throw openFault(file, root);
    }
    if (!hasRootKey(text, root)) {
        throw missingRootFault(file, root, text);
    }
    const ConfigText parsed = parseConfigText(text);
    const Path path = tidiedPath(splitPath(key), [&](const Path& each) {
        return findKey(parsed.top, fullPath(options, each)) != nullptr;
    });
    if (!findKey(parsed.top, fullPath(options, path))) {
        throw CommandError(eExit::eNegative, nameOfKey(path) + " does not exist");
    }
}

// "waiting for the lock of FILE, held by process 5 (x), for 2 s": the status line tells that, too, and
// counts on.
std::string withoutTime(const std::string& message) {
    return message.substr(0, message.rfind(", for "));
}

}  // namespace

Loop::Loop(const BrowseRequest& request, const Signals& signals)
    : m_request(request),
      m_signals(signals),
      m_follower(storeFile(request.store)),
      m_browser(rootName(request.store), rootPath(request.store)),
      m_status(m_follower.file()) {
    checkStore(request.store, request.key);
    (void)m_news.open(m_follower.file());  // without it, the slow poll is left
    readFile(false);
    m_browser.go(splitPath(request.key));
    m_browser.setOpeners([this] {
        refreshStatus(true);
        return m_status.openers();
    });
    refreshStatus(true);
}

std::optional<int> Loop::run(Screen& screen) {
    for (;;) {
        m_browser.setHeight(listHeight(screen.rows()));
        draw(screen, m_browser, m_status);
        wait();
        if (const auto signal = takeSignals(screen)) {
            return signal;
        }
        takeWriter();  // before the keys, which may be typed because of what it has said
        if (!takeKeys(screen)) {
            return SIGHUP;  // the terminal is gone
        }
        if (m_browser.isOver()) {
            return std::nullopt;
        }
        takeEvents();
        startWriter();
    }
}

void Loop::wait() {
    const Clock::time_point next = m_hasNews ? std::min(m_nextReading, m_nextPoll) : m_nextPoll;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    std::array<pollfd, 4> sources = {
        pollfd{STDIN_FILENO, POLLIN, 0}, pollfd{m_signals.fd(), POLLIN, 0},
        pollfd{m_hasNews ? -1 : m_news.descriptor(), POLLIN, 0}, pollfd{m_writer.fd(), POLLIN, 0}};
    ::poll(sources.data(), sources.size(), static_cast<int>(std::max<long>(0, left.count())));
}

std::optional<int> Loop::takeSignals(Screen& screen) {
    while (const auto signal = m_signals.next()) {
        if (Signals::ends(*signal)) {
            return signal;
        }
        if (*signal == SIGTSTP) {
            screen.suspend();
        } else if (*signal == SIGCONT) {
            screen.retake();
        } else {
            screen.resize();
        }
    }
    return std::nullopt;
}

// False when nobody types there any more.
bool Loop::takeKeys(Screen& screen) {
    bool hasKeys = false;
    while (const auto key = screen.read()) {
        hasKeys = true;
        m_browser.type(*key);
        if (m_browser.takeRedraw()) {
            screen.redraw();
            readFile(false);
            refreshStatus(true);
        }
        if (m_browser.takeCancel()) {
            m_writer.cancel();
        }
        startWriter();
    }
    pollfd input{STDIN_FILENO, POLLIN, 0};
    const bool isOver = ::poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR)) != 0;
    return hasKeys || !isOver;
}

// However fast the file changes, most of the time is left for the keys.
void Loop::takeEvents() {
    const Clock::time_point now = Clock::now();
    m_hasNews = m_hasNews || m_news.take();
    if (m_hasNews && now >= m_nextReading) {
        m_hasNews = false;
        readFile(false);
        m_nextReading = Clock::now() + (kShare - 1) * (Clock::now() - now);
    }
    if (now >= m_nextPoll) {
        readFile(true);
        refreshStatus(false);
        m_nextPoll = Clock::now() + kSlowPoll;
    }
}

void Loop::readFile(bool isSlowPoll) {
    const auto text = m_follower.read(isSlowPoll);
    if (text && !m_follower.isLost()) {
        m_browser.show(*text);
    }
    m_browser.setTrouble(m_follower.trouble());
}

void Loop::refreshStatus(bool isWanted) {
    m_status.refresh(isWanted, m_writer.child());
}

void Loop::startWriter() {
    const auto edit = m_browser.takeOrder();
    if (!edit) {
        return;
    }
    try {
        m_writer.start(m_request.store, *edit);
    } catch (const CommandError& error) {
        m_browser.tellEnd(static_cast<int>(error.code()), error.what());
    }
}

void Loop::takeWriter() {
    if (!m_writer.isBusy()) {
        return;
    }
    auto code = m_writer.take();
    if (!code && m_writer.hasSaidMore()) {
        // Its last words come just before its end: what is typed because of them is not for the wait.
        pollfd more{m_writer.fd(), POLLIN, 0};
        ::poll(&more, 1, kLastWords);
        code = m_writer.take();
        if (!code) {
            m_browser.tellWaiting(withoutTime(m_writer.message()));
        }
    }
    if (!code) {
        return;
    }
    readFile(false);
    m_browser.tellEnd(*code, m_writer.message());
    refreshStatus(true);
}

}  // namespace vqreg
