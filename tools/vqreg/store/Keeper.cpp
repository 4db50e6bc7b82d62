#include "tools/vqreg/store/Keeper.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Environment.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

// However fast the values change, a program has so long before it hears of it again: before it is ready
// for signals, most of them are its end.
constexpr auto kLeastPause = std::chrono::seconds(1);
constexpr std::size_t kMostNames = 3;

bool hasSameValues(const Key& one, const Key& other) {
    return std::ranges::equal(one.values, other.values, [](const auto& left, const auto& right) {
        return left.first == right.first && left.second.sameData(right.second);
    });
}

// For who reads the journal: "Port" has changed.
std::string changeOf(const Key& before, const Key& after) {
    std::vector<std::string> names;
    for (const Change& change : difference(before, after)) {
        if (change.path.empty() && !change.isOfKey()) {
            names.push_back('"' + printable(change.value().name) + '"');
        }
    }
    const std::size_t more = names.size() - std::min(names.size(), kMostNames);
    names.resize(names.size() - more);
    return fmt::format("{}{} {} changed", fmt::join(names, ", "),
                       more > 0 ? fmt::format(" and {} more", more) : "",
                       names.size() + more == 1 ? "has" : "have");
}

}  // namespace

std::vector<std::string> environmentOf(const Key& key, const std::string& prefix) {
    std::vector<std::string> texts;
    for (const Variable& variable : variablesOf(key, prefix)) {
        texts.push_back(variable.name + '=' + variable.text);
    }
    return texts;
}

int Keeper::run(ChangeSource& source, KeyReader& reader) {
    start();
    look(reader, false);
    while (!m_exitCode) {
        pollfd sources[] = {{m_inbox.descriptor(), POLLIN, 0}, {source.descriptor(), POLLIN, 0}};
        ::poll(sources, std::size(sources), millisecondsUntil(deadline(source.nextPoll())));
        takeSignals();
        if (m_exitCode) {
            break;
        }
        const eNews news = source.take();
        if (news != eNews::eNone) {
            look(reader, news == eNews::eSlowPoll);
        }
        act();
    }
    return *m_exitCode;
}

void Keeper::start() {
    m_program.start(m_environment, m_inbox);
    m_started = m_wanted;
    m_told = Clock::now();
    m_killTime.reset();
}

void Keeper::look(KeyReader& reader, bool isSlowPoll) {
    std::optional<Key> now = reader.read(isSlowPoll);
    // Nobody deletes settings by losing the file. It comes back, or is brought back.
    if (!now || reader.isFileLost() || hasSameValues(*now, m_known)) {
        return;
    }
    m_known = std::move(*now);
    if (!m_options.restart) {
        m_isSignalDue = true;
        return;
    }
    try {
        std::vector<std::string> environment = environmentOf(m_known, m_options.prefix);
        if (!m_program.fits(environment)) {
            throw CommandError(eExit::eWrongKind,
                               "the values are more than the system starts a program with");
        }
        m_environment = std::move(environment);
        m_wanted = m_known;
    } catch (const CommandError& error) {
        note(fmt::format("{}; {} goes on as it is", error.what(), m_program.name()));
    }
}

void Keeper::takeSignals() {
    while (const auto letter = m_inbox.next()) {
        if (letter->signal == SIGCHLD) {
            if (const auto code = m_program.reap()) {
                noteEnd(*code);
            }
            continue;
        }
        if (letter->asksForEnd) {
            noteRequest(letter->isFinal);
        }
        if (!letter->hasReachedChild) {
            m_program.signal(letter->signal);
        }
        if (letter->isFinal) {
            m_program.signal(SIGCONT);  // one that is stopped would not see it
        }
    }
}

// Programs end at SIGTERM: it is how they are stopped here. An interruption some of them outlive.
void Keeper::noteRequest(bool isFinal) {
    const auto until = isFinal ? Clock::time_point::max() : Clock::now() + grace();
    m_endUntil = std::max(until, m_endUntil.value_or(until));
}

void Keeper::noteEnd(int code) {
    if (m_killTime && !m_endUntil) {
        start();
    } else {
        m_exitCode = code;
    }
}

void Keeper::act() {
    if (m_killTime) {
        killWhenDue();
    } else if (isDue() && Clock::now() >= nextAct()) {
        tell();
    }
}

void Keeper::tell() {
    if (!m_options.restart) {
        m_program.signal(*signalNumber(m_options.signal));
        m_isSignalDue = false;
        m_told = Clock::now();
        return;
    }
    note(fmt::format("{}; {} is started again", changeOf(m_started, m_wanted), m_program.name()));
    m_endUntil.reset();
    m_killTime = Clock::now() + grace();
    m_program.signal(SIGTERM);
    m_program.signal(SIGCONT);
}

void Keeper::killWhenDue() {
    if (Clock::now() >= *m_killTime) {
        note(fmt::format("{} has not ended {} s after SIGTERM, and is killed", m_program.name(),
                         m_options.graceSeconds));
        m_program.signal(SIGKILL);
        *m_killTime = Clock::time_point::max();
    }
}

bool Keeper::isDue() const {
    return m_options.restart ? !hasSameValues(m_wanted, m_started) : m_isSignalDue;
}

Keeper::Clock::time_point Keeper::nextAct() const {
    const auto next = m_told + kLeastPause;
    return m_options.restart ? std::max(next, m_endUntil.value_or(next)) : next;
}

Keeper::Clock::duration Keeper::grace() const {
    return std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(m_options.graceSeconds));
}

// Until when nothing is to be done but what comes in.
Keeper::Clock::time_point Keeper::deadline(Clock::time_point nextPoll) const {
    if (m_killTime) {
        return std::min(nextPoll, *m_killTime);
    }
    return isDue() ? std::min(nextPoll, nextAct()) : nextPoll;
}

}  // namespace vqreg
