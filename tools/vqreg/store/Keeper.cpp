#include "tools/vqreg/store/Keeper.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Environment.h"

namespace vqreg {

namespace {

// However fast the values change, a program runs for so long before it is started again.
constexpr auto kShortestRun = std::chrono::seconds(1);

bool hasSameValues(const Key& one, const Key& other) {
    return std::ranges::equal(one.values, other.values, [](const auto& left, const auto& right) {
        return left.first == right.first && left.second.sameData(right.second);
    });
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
        stopWhenDue();
    }
    return *m_exitCode;
}

void Keeper::start() {
    m_program.start(m_environment, m_inbox);
    m_started = m_wanted;
    m_start = Clock::now();
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
        m_program.signal(*signalNumber(m_options.signal));
        return;
    }
    try {
        m_environment = environmentOf(m_known, m_options.prefix);
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

void Keeper::stopWhenDue() {
    const auto now = Clock::now();
    if (m_killTime) {
        if (now >= *m_killTime) {
            note(fmt::format("{} has not ended {} s after SIGTERM, and is killed", m_program.name(),
                             m_options.graceSeconds));
            m_program.signal(SIGKILL);
            *m_killTime = Clock::time_point::max();
        }
    } else if (isDue() && now >= nextStop()) {
        m_endUntil.reset();
        m_killTime = now + grace();
        m_program.signal(SIGTERM);
        m_program.signal(SIGCONT);
    }
}

bool Keeper::isDue() const {
    return m_options.restart && !hasSameValues(m_wanted, m_started);
}

Keeper::Clock::time_point Keeper::nextStop() const {
    return std::max(m_start + kShortestRun, m_endUntil.value_or(m_start));
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
    return isDue() ? std::min(nextPoll, nextStop()) : nextPoll;
}

}  // namespace vqreg
