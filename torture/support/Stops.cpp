#include "support/Stops.h"

#include <fcntl.h>

namespace vqtorture {

namespace {

constexpr std::uint64_t kMoreTries = 10;
constexpr std::uint64_t kOneIn = 25;  // places may not be met again
constexpr std::uint64_t kNoCall = ~std::uint64_t{0};

}  // namespace

std::string Stop::words() const {
    return std::string(isEnd ? "the end" : "the beginning") + " of system call " +
           std::to_string(number) + ", turn " + std::to_string(turn) +
           (thread == 0 ? "" : ", thread " + std::to_string(thread));
}

// The calls of one number are dealt out one after the other, and those of other numbers begin elsewhere.
std::uint64_t Stop::lot() const {
    return 2 * std::uint64_t{turn} + (isEnd ? 1 : 0) + 7 * number + 3 * thread;
}

bool StopWalk::step() {
    if (!m_child.step()) {
        return false;
    }
    const auto order = static_cast<unsigned>(m_threads.size());
    Thread& thread = m_threads.try_emplace(m_child.stopped(), Thread{order, kNoCall}).first->second;
    const __ptrace_syscall_info info = m_child.stop();
    const bool isEnd = info.op != PTRACE_SYSCALL_INFO_ENTRY;
    if (!isEnd) {
        thread.number = info.entry.nr;
        ++thread.turns[thread.number];
    }
    m_at = {thread.order, thread.number, thread.turns[thread.number], isEnd};
    return true;
}

bool StopWalk::isCreation() const {
    if (m_at.isEnd || m_at.number != SYS_openat) {
        return false;
    }
    const std::uint64_t flags = m_child.stop().entry.args[2];
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

bool Part::has(const Stop& stop, std::size_t offset) const {
    return (stop.lot() + offset) % m_parts == m_number;
}

void Places::see(const Stop& stop) {
    if (m_part.has(stop, m_offset) && m_seen.insert(stop).second) {
        m_places.push_back(stop);
    }
}

void Places::visitEach(Run& run, std::uint64_t times,
                       const std::function<bool(const Stop&)>& visit) {
    for (std::size_t i = 0; i < m_places.size(); ++i) {  // more may be seen on the way
        const Stop place = m_places[i];
        std::uint64_t visits = 0;
        for (std::uint64_t tries = 0; visits < times && tries < times + kMoreTries; ++tries) {
            visits += visit(place) ? 1 : 0;
        }
        run.add("places");
        run.add("places_visited", visits > 0 ? 1 : 0);
    }
}

void endPart(Run& run) {
    run.add("parts");
    const auto places = static_cast<std::uint64_t>(run.sum("places"));
    const auto visited = static_cast<std::uint64_t>(run.sum("places_visited"));
    require(places > 0 && (places - visited) * kOneIn <= places,
            "only " + std::to_string(visited) + " of " + std::to_string(places) +
                " places were met again");
}

}  // namespace vqtorture
