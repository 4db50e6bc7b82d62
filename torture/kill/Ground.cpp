#include "kill/Ground.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "support/ChildLife.h"
#include "support/Handlers.h"
#include "support/Wait.h"

namespace vqtorture {

using VQRegLib::REGLIB_OK;

namespace {

constexpr double kMostMilliseconds = 1000;
constexpr double kMostMillisecondsForAnOpener = 15'000;
constexpr unsigned kNewProcessSeconds = 20;
constexpr std::uint32_t kChangesBeside = 10;
constexpr mode_t kForAll = 0777;
constexpr mode_t kReadOnlyForOthers = 0644;
constexpr char kNewText[] = "[Velquist]\n";

double millisecondsOf(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

}  // namespace

Ground::Ground(Run& run, Others& others, const Case& what)
    : m_run(run),
      m_others(others),
      m_case(what),
      m_store(run.directory()),
      m_path(m_store.path()),
      m_now{1, 1, 1} {
    if (what.scene != Scene::eNothing) {
        m_store.write(m_now.text());
    }
    ::chmod(m_store.directory().c_str(), kForAll);
    if (what.scene == Scene::eWitnessed) {
        openOthers();
    }
    beginAnew();
}

Ground::~Ground() {
    try {
        closeOthers();
    } catch (const std::exception&) {
        // An other one that does not answer is being told of already.
    }
}

void Ground::beginAnew() {
    m_progress->begun = ownNumber();
    m_progress->done = ownNumber();
    m_progress->failure = REGLIB_OK;
    m_progress->isReady = false;
    m_seen.reset();
    m_isDead = false;
    closeToOtherUsers();
}

// As a file is that root has written, until root next opens it.
void Ground::closeToOtherUsers() {
    if (m_case.isOfAnotherUser) {
        require(::chmod(m_path.c_str(), kReadOnlyForOthers) == 0, "the mode is not changed");
    }
}

std::uint32_t& Ground::ownNumber() {
    return m_case.deed == Deed::eUpdate ? m_now.update : m_now.set;
}

void Ground::timed(const std::string& what, const std::function<void()>& action) {
    const double milliseconds = millisecondsOf(action);
    m_run.highest("longest_wait_ms", milliseconds);
    require(milliseconds <= kMostMilliseconds,
            what + " took " + std::to_string(milliseconds) + " ms");
}

void Ground::openOthers() {
    if (m_isOpen) {
        return;
    }
    m_isOpen = true;
    for (vqtest::Agent* agent : {&m_others.first, &m_others.second}) {
        timed("opening", [&] { require(agent->open(m_path) == REGLIB_OK, "it cannot be opened"); });
    }
    if (m_case.deed == Deed::eRegister) {
        timed("registration", [&] { m_others.first.watch(); });
        require(vqtest::waitWatchers(1, m_others.first.pid()), "the watcher does not come to rest");
    }
}

void Ground::closeOthers() {
    if (m_isOpen) {
        m_isOpen = false;
        m_others.first.close();
        m_others.second.close();
    }
}

void Ground::letOtherChange() {
    m_others.second.tell({"stress", ".", "Other", std::to_string(kChangesBeside)});
    m_isChanging = true;
}

// It may have been waiting for the lock that the dead one held.
void Ground::collectOther() {
    if (m_isChanging) {
        m_isChanging = false;
        timed("a set beside it", [&] {
            require(m_others.second.answer().fields.at(0) == "0", "a set beside it is refused");
        });
        m_now.other = kChangesBeside;
    }
}

void Ground::judgeDeath(int deaths) {
    require(m_progress->failure == REGLIB_OK, "it was refused something before it died");
    m_isDead = true;
    collectOther();
    lookAtFiles(deaths);
    if (m_case.scene == Scene::eNothing) {
        lookAtNewStore();
        return;
    }
    lookAndChange();
    if (m_case.deed == Deed::eRegister) {
        notify();
    }
    if (m_case.scene == Scene::eAlone) {
        closeOthers();
    }
    beginAnew();
}

void Ground::judgeStop(bool alsoAnew) {
    openOthers();
    timed("a read", [&] { expectSeen(seenBy(m_others.first), "the first other"); });
    timed("a read", [&] { expectSeen(seenBy(m_others.second), "the second other"); });
    if (alsoAnew) {
        openAnewBesideStopped();
    }
    timed("a read", [&] { expectSeen(seenBy(m_others.first), "the first other, again,"); });
    if (m_case.deed == Deed::eRegister) {
        timed("a notification",
              [&] { require(m_others.second.send() == REGLIB_OK, "no notification"); });
    }
}

// A store that nobody has open has to be made ready by whoever comes first, as the one is from which a new
// process reads the trace level. Others wait for that, for 400 naps.
void Ground::openAnewBesideStopped() {
    const auto open = [&] { expectSeen(lookFromNewProcess({}), "a new process"); };
    if (m_case.deed != Deed::eOpen) {
        timed("a new process", open);
        return;
    }
    const double milliseconds = millisecondsOf(open);
    m_run.highest("longest_opening_beside_an_opener_ms", milliseconds);
    require(milliseconds <= kMostMillisecondsForAnOpener,
            "an opening took " + std::to_string(milliseconds) + " ms");
}

void Ground::judgeEnd() {
    require(m_progress->failure == REGLIB_OK && m_progress->done == m_progress->begun,
            "it was refused something");
    if (m_case.deed == Deed::eSet || m_case.deed == Deed::eUpdate) {
        ownNumber() = m_progress->done;
    }
    m_seen = m_now;
    lookAtFiles(0);
    lookAndChange();
    beginAnew();
}

// Before anybody else comes to it.
void Ground::lookAtFiles(int deaths) {
    if (m_case.scene != Scene::eNothing) {
        expectSeen(contentOf(m_store.read()), "who reads the file");
    } else if (m_store.exists()) {
        const std::string text =
            m_store.read();  // first that of no key, then that of the first one
        require(text.empty() || text == kNewText, "not a whole text: " + text);
    }
    if (m_store.backupExists() && m_case.scene != Scene::eNothing) {
        contentOf(m_store.readBackup());
    }
    int temporaries = 0;
    for (const std::string& name : m_store.files()) {
        const std::string path = m_store.directory() + "/" + name;
        if (path != m_path && path != m_store.backupPath()) {
            ++temporaries;
            std::filesystem::remove(path);
        }
    }
    require(temporaries <= deaths, "more temporary files than deaths");
    m_run.add("temporary_files", temporaries);
}

// Nobody has opened it; after a death that is as if nobody had ever tried.
void Ground::lookAtNewStore() {
    openOthers();
    require(m_store.read() == kNewText, "a new store is " + m_store.read());
    require(m_store.isUnlocked(), "a lock is left");
    timed("a set",
          [&] { require(m_others.first.set(".", "Other", 7u) == REGLIB_OK, "a set is refused"); });
    require(m_others.second.get(".", "Other").dword() == 7u, "a change is not seen");
    closeOthers();
}

void Ground::lookAndChange() {
    openOthers();
    timed("a read", [&] { expectSeen(seenBy(m_others.first), "the first other"); });
    m_now = *m_seen;
    timed("a read", [&] { expectSeen(seenBy(m_others.second), "the second other"); });
    require(m_store.isUnlocked(), "a lock is left");
    timed("a new process",
          [&] { expectSeen(lookFromNewProcess(m_now.other + 1), "a new process"); });
    ++m_now.other;
    m_seen = m_now;
    timed("a read", [&] { expectSeen(seenBy(m_others.second), "the second other, again,"); });
    timed("a set", [&] {
        require(m_others.first.set(".", "Other", ++m_now.other) == REGLIB_OK, "a set is refused");
    });
    m_seen = m_now;
    timed("a read", [&] { expectSeen(seenBy(m_others.second), "the second other, at last,"); });
    expectSeen(contentOf(m_store.read()), "who reads the file at last");
}

// The others can still tell each other.
void Ground::notify() {
    const std::uint64_t before = m_others.first.changes();
    vqtest::moveFileTime(m_path);
    timed("a notification",
          [&] { require(m_others.second.send() == REGLIB_OK, "no notification"); });
    timed("a call", [&] {
        require(vqtest::waitUntil([&] { return m_others.first.changes() > before; }),
                "a handler is not called");
    });
}

// The text before the deed or the one after it; and once somebody has seen the latter, only that.
void Ground::expectSeen(const Content& seen, const char* who) {
    const bool isChanging = m_case.deed == Deed::eSet || m_case.deed == Deed::eUpdate;
    Content least = m_now;
    Content most = m_now;
    if (isChanging && !m_seen) {
        std::uint32_t Content::*const own =
            m_case.deed == Deed::eSet ? &Content::set : &Content::update;
        least.*own = m_progress->done;
        most.*own = m_progress->begun;
    }
    const bool isRight = m_seen ? seen == *m_seen : seen == least || seen == most;
    require(isRight, who + std::string(" sees ") + seen.words() + ", not " +
                         (m_seen ? m_seen->words() : least.words() + " or " + most.words()));
    const bool mayChange = !m_seen && isChanging && seen == least && least != most;
    if (!mayChange || m_isDead) {
        m_seen = seen;
    }
}

Content Ground::lookFromNewProcess(std::optional<std::uint32_t> newOther) {
    vqtest::Common<Content> seen;
    const pid_t parent = ::getpid();
    vqtest::ForkedChild child([&] {
        vqtest::endWithParent(parent, kNewProcessSeconds);
        try {
            const auto session = vqtest::openSession(m_path);
            *seen = seenBy(*session);
            return newOther ? vqtest::setNumber(*session, "Other", *newOther) : REGLIB_OK;
        } catch (const std::exception& violation) {
            std::fprintf(stderr, "a new process: %s\n", violation.what());
            return 1;
        }
    });
    const int status = child.wait();
    require(status == 0, "a new process ended with " + std::to_string(status));
    return *seen;
}

}  // namespace vqtorture
