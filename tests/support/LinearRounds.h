// Readers and writers of eight processes with four threads each, which are stopped and killed at
// random: whatever they see has one order, which no clock contradicts.
#ifndef VQTEST_LINEAR_ROUNDS_H
#define VQTEST_LINEAR_ROUNDS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "VQRegLib.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/LinearHistory.h"
#include "support/TempStore.h"
#include "support/WatchedStore.h"

namespace vqtest {

constexpr int kProcesses = 8;
constexpr int kThreads = 4;
constexpr int kSlots = kProcesses * kThreads;
constexpr int kPair = kSlots;         // the values A and B, which all writers count up together
constexpr int kObjects = kSlots + 1;  // and one value for each slot, which only that one counts up
constexpr long kRoundSeconds = 8;

struct LinearWorld {
    std::atomic<bool> isOver;
    std::atomic<int> faults;
    std::array<char, 200> fault;  // the first of them
    std::array<History, kSlots> histories;
};

inline std::string nameOf(int object) {
    return "Own" + std::to_string(object);
}

// One of the threads of a process.
class LinearWorker {
public:
    LinearWorker(LinearWorld& shared, const std::string& path, int slot, unsigned seed)
        : m_shared(shared),
          m_history(shared.histories[static_cast<std::size_t>(slot)]),
          m_path(path),
          m_slot(slot),
          m_random(seed),
          // Two threads share a store, the other two have one of their own on the same file.
          m_session(openSession(path, slot % 2 == 0 ? nullptr : "VELQUIST")) {}

    void run() {
        if (!m_session->RootKey()) {
            fault("no store", 0, 0);
            return;
        }
        while (!m_shared.isOver && !m_history.isFull()) {
            const unsigned what = m_random() % 16;
            if (what == 0) {
                writePair();
            } else if (what == 1) {
                writeOwn();
            } else if (what == 2) {
                readText();
            } else if (what < 8) {
                readPair();
            } else {
                readOne(static_cast<int>(m_random() % kSlots));
            }
        }
    }

private:
    void fault(const char* what, long one, long other) {
        if (m_shared.faults++ == 0) {
            std::snprintf(m_shared.fault.data(), m_shared.fault.size(), "%s: %ld, %ld", what, one,
                          other);
        }
    }

    long query(const std::string& name) { return numberOf(*m_session, name.c_str()); }

    void noteRead(int object, std::int64_t begin, long number) {
        const std::int64_t end = now();
        Event*& last = m_lastReads[static_cast<std::size_t>(object)];
        if (last && last->number == static_cast<std::uint32_t>(number)) {
            last->begin = begin;
        } else if (!m_history.isFull()) {
            last = m_history.add({begin, end, object, static_cast<std::uint32_t>(number), false});
        }
    }

    void readOne(int object) {
        const std::int64_t begin = now();
        const long number = query(nameOf(object));
        if (number < 0) {
            fault("a value is missing", object, 0);
        } else {
            noteRead(object, begin, number);
        }
    }

    // The second is read later and may be newer.
    void readPair() {
        std::int64_t begin = now();
        const long a = query("A");
        noteRead(kPair, begin, a);
        begin = now();
        const long b = query("B");
        noteRead(kPair, begin, b);
        if (a < 0 || b < a) {
            fault("B is older than A", a, b);
        }
    }

    // Within one text the two are the same.
    void readText() {
        std::ifstream in(m_path, std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
        const std::size_t a = text.find("\"A\"=dword:");
        const std::size_t b = text.find("\"B\"=dword:");
        if (a == std::string::npos || b == std::string::npos ||
            text.substr(a + 10, 8) != text.substr(b + 10, 8)) {
            fault("a text is not whole", static_cast<long>(a), static_cast<long>(b));
        }
    }

    // What comes of a write is noted before, because the process may die of it.
    Event* noteWrite(int object, std::int64_t begin, long number) {
        return m_history.add({begin, 0, object, static_cast<std::uint32_t>(number), true});
    }

    void writePair() {
        const std::int64_t begin = now();
        VQRegLib::CRegUpdate update(*m_session);
        const long a = query("A");
        const long b = query("B");
        if (update.result() < 0 || a != b || a < 0) {
            fault("an update began with", a, b);
            return;
        }
        if (m_history.isFull()) {
            return;
        }
        Event* const event = noteWrite(kPair, begin, a + 1);
        const int first = setNumber(*m_session, "A", static_cast<unsigned long>(a + 1));
        const int second = setNumber(*m_session, "B", static_cast<unsigned long>(a + 1));
        if (first < 0 || second < 0 || update.end() < 0) {
            fault("an update failed", first, second);
            return;
        }
        event->end = now();
    }

    void writeOwn() {
        const long number = query(nameOf(m_slot)) + 1;
        if (m_history.isFull() || number <= 0) {
            return;
        }
        Event* const event = noteWrite(m_slot, now(), number);
        if (setNumber(*m_session, nameOf(m_slot).c_str(), static_cast<unsigned long>(number)) < 0) {
            fault("a set failed", m_slot, number);
            return;
        }
        event->end = now();
    }

    LinearWorld& m_shared;
    History& m_history;
    const std::string m_path;
    const int m_slot;
    std::minstd_rand m_random;
    const std::unique_ptr<CRegLib> m_session;
    std::array<Event*, kObjects> m_lastReads{};
};

// Rounds of such processes on one store. Use it from one thread.
class LinearRounds {
public:
    explicit LinearRounds(unsigned seed) : m_random(seed), m_seed(seed) { makeValues(); }

    /// What has been read and written is looked at when the time is over. How many updates there were.
    std::size_t round(std::chrono::seconds duration) {
        const Numbers before = numbers();
        Common<LinearWorld> shared;
        work(*shared, duration);
        EXPECT_EQ(shared->faults, 0) << shared->fault.data();
        const Numbers after = numbers();
        std::size_t updates = 0;
        for (int object = 0; object < kObjects && shared->faults == 0; ++object) {
            const auto at = static_cast<std::size_t>(object);
            SCOPED_TRACE(object == kPair ? "A and B" : nameOf(object));
            Judge judge(shared->histories, object, static_cast<std::uint32_t>(before[at]));
            judge.expectOnlyWritten();
            judge.expectOneOrder();
            judge.expectKept(after[at]);
            updates = judge.acknowledged();  // of the pair, in the end
        }
        EXPECT_GT(updates, 10u) << "next to nothing happened";
        return updates;
    }

private:
    using Numbers = std::vector<long>;

    // Of all objects; the last is the pair.
    Numbers numbers() const {
        const auto session = openSession(store.path());
        Numbers result;
        for (int object = 0; object < kSlots; ++object) {
            result.push_back(numberOf(*session, nameOf(object).c_str()));
        }
        result.push_back(numberOf(*session, "A"));
        EXPECT_EQ(numberOf(*session, "B"), result.back());
        return result;
    }

    void makeValues() const {
        const auto session = openSession(store.path());
        VQRegLib::CRegUpdate update(*session);
        for (int object = 0; object < kSlots; ++object) {
            setNumber(*session, nameOf(object).c_str(), 0);
        }
        setNumber(*session, "A", 0);
        setNumber(*session, "B", 0);
        EXPECT_EQ(update.end(), VQRegLib::REGLIB_OK);
    }

    std::unique_ptr<ForkedChild> spawn(LinearWorld& shared, int process) {
        const pid_t parent = getpid();
        const unsigned seed = m_seed++;
        return std::make_unique<ForkedChild>([&shared, this, process, parent, seed] {
            endWithParent(parent, 4 * kRoundSeconds + 60);
            std::deque<std::thread> threads;
            for (int i = 0; i < kThreads; ++i) {
                threads.emplace_back([&shared, this, slot = process * kThreads + i, seed] {
                    LinearWorker(shared, store.path(), slot,
                                 seed * kSlots + static_cast<unsigned>(slot))
                        .run();
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            return 0;
        });
    }

    // Stops one for a moment, or kills it and makes another. The moments between these are random.
    void disturb(LinearWorld& shared, int process) {
        std::unique_ptr<ForkedChild>& child = m_children[static_cast<std::size_t>(process)];
        std::uniform_int_distribution<int> pause(0, 20);
        if (m_random() % 4 == 0) {
            child->kill();
            child = spawn(shared, process);
        } else {
            ::kill(child->pid(), SIGSTOP);
            std::this_thread::sleep_for(std::chrono::milliseconds(pause(m_random)));
            ::kill(child->pid(), SIGCONT);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(pause(m_random)));
    }

    void work(LinearWorld& shared, std::chrono::seconds duration) {
        for (int process = 0; process < kProcesses; ++process) {
            m_children.push_back(spawn(shared, process));
        }
        const auto end = std::chrono::steady_clock::now() + duration;
        while (std::chrono::steady_clock::now() < end && shared.faults == 0) {
            disturb(shared, static_cast<int>(m_random() % kProcesses));
        }
        shared.isOver = true;
        for (const auto& child : m_children) {
            EXPECT_EQ(child->wait(), 0);
        }
        m_children.clear();
    }

    TempStore store;
    std::minstd_rand m_random;
    unsigned m_seed;
    std::vector<std::unique_ptr<ForkedChild>> m_children;
};

}  // namespace vqtest

#endif  // VQTEST_LINEAR_ROUNDS_H
