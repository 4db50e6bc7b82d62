// What many processes count up together, and who has been told that his number is in the file.
#ifndef VQTORTURE_LEDGER_H
#define VQTORTURE_LEDGER_H

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "VQRegLib.h"
#include "support/Acknowledged.h"
#include "support/Children.h"
#include "support/Torture.h"
#include "support/WatchedStore.h"

namespace vqtorture {

constexpr char kCounter[] = "Counter";

/// Lives in memory that the processes share, in a Common.
struct Ledger {
    Acknowledged told;
    std::atomic<std::uint32_t> newest;  // the highest that is
    std::atomic<std::uint32_t> acknowledged;
    std::atomic<std::uint32_t> tried;
    std::atomic<std::uint32_t> refused;
    std::atomic<std::uint32_t> longestMilliseconds;
    std::atomic<std::uint32_t> ready;  // processes that are, whatever for
    std::atomic<bool> isOver;
    std::atomic<bool> mayRepeat;  // a number may be acknowledged twice
    std::atomic<int> faults;
    std::array<char, 200> fault;  // the first

    void noteFault(const char* what, long one, long other) {
        if (faults++ == 0) {
            std::snprintf(fault.data(), fault.size(), "%s: %ld, %ld", what, one, other);
        }
    }

    void noteWait(const Stopwatch& watch) {
        raise(longestMilliseconds, static_cast<std::uint32_t>(watch.milliseconds()));
    }

    void acknowledge(std::uint32_t number) {
        if (!told.add(number) && !mayRepeat) {
            noteFault("two were told that they had written a number", number, 0);
        }
        ++acknowledged;
        raise(newest, number);
    }

private:
    static void raise(std::atomic<std::uint32_t>& highest, std::uint32_t number) {
        std::uint32_t before = highest;
        while (before < number && !highest.compare_exchange_weak(before, number)) {
        }
    }
};

/// A store without the number has counted to 0.
inline long countOf(VQRegLib::CRegLib& session) {
    return std::max(0L, vqtest::numberOf(session, kCounter));
}

/// Counts up by one, in an update. @return whether it was acknowledged
inline bool countUp(VQRegLib::CRegLib& session, Ledger& ledger) {
    const Stopwatch watch;
    VQRegLib::CRegUpdate update(session);
    const long number = countOf(session) + 1;
    const bool isSet =
        update.result() >= 0 &&
        vqtest::setNumber(session, kCounter, static_cast<unsigned long>(number)) >= 0;
    ledger.tried += isSet ? 1 : 0;
    const bool isWritten = isSet && update.end() >= 0;
    if (isWritten) {
        ledger.acknowledge(static_cast<std::uint32_t>(number));
    } else {
        ++ledger.refused;
    }
    ledger.noteWait(watch);
    return isWritten;
}

/// Reads the number, which must be at least the newest that anybody was told of before.
inline void readNewest(VQRegLib::CRegLib& session, Ledger& ledger) {
    const std::uint32_t newest = ledger.newest;
    const Stopwatch watch;
    const long number = countOf(session);
    ledger.noteWait(watch);
    if (number < static_cast<long>(newest)) {
        ledger.noteFault("a read is older than an acknowledged change", number, newest);
    }
}

/// A store that begins to count at 0.
inline void makeCounter(const std::string& path) {
    spawn([path] {
        const auto session = vqtest::openSession(path);
        return session->RootKey() && vqtest::setNumber(*session, kCounter, 0) >= 0 ? 0 : 1;
    })->wait();
}

/// What the file has now, as a process reads it that has never seen it; -1 when it cannot.
inline long countInFile(const std::string& path) {
    Common<long> result;
    spawn([&] {
        const auto session = vqtest::openSession(path);
        *result = session->RootKey() ? vqtest::numberOf(*session, kCounter) : -1;
        return 0;
    })->wait();
    return *result;
}

/// Nothing acknowledged is missing, and nothing is there that nobody tried. Where no change was refused,
/// and nobody was killed, the two are the same.
inline void requireAllCounted(Ledger& ledger, const std::string& path, bool isUndisturbed) {
    require(ledger.faults == 0, ledger.fault.data());
    const long number = countInFile(path);
    const auto words = [&] {
        return std::to_string(ledger.acknowledged) + " changes acknowledged, " +
               std::to_string(ledger.tried) + " tried, and the file has " + std::to_string(number);
    };
    require(number >= static_cast<long>(ledger.newest), words());
    require(number >= static_cast<long>(ledger.acknowledged), words());
    require(number <= static_cast<long>(ledger.tried), words());
    require(!isUndisturbed || number == static_cast<long>(ledger.acknowledged), words());
}

}  // namespace vqtorture

#endif  // VQTORTURE_LEDGER_H
