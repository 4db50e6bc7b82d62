// Eight processes of four threads change values of their own, and read each of them back; now and then
// they read a value of somebody else's, which never goes back. In the end all values are the last ones.
#include <array>
#include <atomic>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "VQRegLib.h"
#include "load/Load.h"
#include "support/Children.h"
#include "support/WatchedStore.h"

namespace vqtorture {

namespace {

constexpr int kProcesses = 8;
constexpr int kThreads = 4;
constexpr int kSlots = kProcesses * kThreads;
constexpr unsigned kSeconds = 3000;

struct World {
    std::array<std::atomic<unsigned long>, kSlots> acknowledged;
    std::atomic<int> faults;
    std::array<char, 200> fault;
    std::atomic<std::uint64_t> longestMicroseconds;

    void noteFault(const char* what, int slot, long one, long other) {
        if (faults++ == 0) {
            std::snprintf(fault.data(), fault.size(), "slot %d: %s: %ld, %ld", slot, what, one,
                          other);
        }
    }
};

std::string nameOf(int slot) {
    return "Value" + std::to_string(slot);
}

class Writer {
public:
    Writer(World& world, const std::string& path, int slot, std::uint64_t seed)
        : m_world(world),
          m_slot(slot),
          m_random(seed),
          // Two threads share a store, the other two have one of their own on the same file.
          m_session(vqtest::openSession(path, slot % 2 == 0 ? nullptr : "VELQUIST")) {}

    void run(unsigned long changes) {
        if (!m_session->RootKey()) {
            m_world.noteFault("no store", m_slot, 0, 0);
            return;
        }
        for (unsigned long number = 1; number <= changes && m_world.faults == 0; ++number) {
            change(number);
            if (m_random() % 4 == 0) {
                readOther(static_cast<int>(m_random() % kSlots));
            }
        }
    }

private:
    void change(unsigned long number) {
        const Stopwatch watch;
        const std::string name = nameOf(m_slot);
        if (vqtest::setNumber(*m_session, name.c_str(), number) < 0) {
            m_world.noteFault("a change was refused", m_slot, static_cast<long>(number), 0);
            return;
        }
        m_world.acknowledged[static_cast<std::size_t>(m_slot)] = number;
        const long back = vqtest::numberOf(*m_session, name.c_str());
        if (back != static_cast<long>(number)) {
            m_world.noteFault("read back", m_slot, static_cast<long>(number), back);
        }
        noteWait(static_cast<std::uint64_t>(watch.milliseconds() * 1000));
    }

    void readOther(int slot) {
        const auto at = static_cast<std::size_t>(slot);
        const auto known = static_cast<long>(m_world.acknowledged[at].load());
        const long number = vqtest::numberOf(*m_session, nameOf(slot).c_str());
        if (number < known && !(known == 0 && number == -1)) {
            m_world.noteFault("older than acknowledged", slot, number, known);
        }
        if (number < m_seen[at]) {
            m_world.noteFault("older than seen", slot, number, m_seen[at]);
        }
        m_seen[at] = number;
    }

    void noteWait(std::uint64_t microseconds) {
        std::uint64_t before = m_world.longestMicroseconds;
        while (before < microseconds &&
               !m_world.longestMicroseconds.compare_exchange_weak(before, microseconds)) {
        }
    }

    World& m_world;
    const int m_slot;
    std::minstd_rand m_random;
    const std::unique_ptr<VQRegLib::CRegLib> m_session;
    std::array<long, kSlots> m_seen = startOfAll();

    static std::array<long, kSlots> startOfAll() {
        std::array<long, kSlots> start{};
        start.fill(-1);
        return start;
    }
};

int workInThreads(World& world, const std::string& path, int process, const Run& run) {
    std::deque<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        const int slot = process * kThreads + i;
        threads.emplace_back([&world, &path, &run, slot] {
            Writer(world, path, slot, run.seed() * kSlots + static_cast<std::uint64_t>(slot))
                .run(run.count());
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

void requireAllThere(const std::string& path, std::uint64_t count) {
    const auto reader = spawn([&] {
        const auto session = vqtest::openSession(path);
        for (int slot = 0; slot < kSlots; ++slot) {
            const long number = vqtest::numberOf(*session, nameOf(slot).c_str());
            require(number == static_cast<long>(count),
                    nameOf(slot) + " is " + std::to_string(number) + " in the end");
        }
        return 0;
    });
    requireEnd(*reader, "who reads in the end");
}

}  // namespace

void readback(Run& run) {
    const std::string path = run.directory() + "/store.cfg";
    Common<World> world;
    std::vector<std::unique_ptr<ForkedChild>> processes;
    const Stopwatch watch;
    for (int process = 0; process < kProcesses; ++process) {
        processes.push_back(
            spawn([&, process] { return workInThreads(*world, path, process, run); }, kSeconds));
    }
    for (const auto& process : processes) {
        requireEnd(*process, "a process");
    }
    require(world->faults == 0, world->fault.data());
    requireAllThere(path, run.count());
    const auto changes = static_cast<double>(run.count() * kSlots);
    run.add("changes", changes);
    run.highest("longest_change_ms", static_cast<double>(world->longestMicroseconds) / 1000);
    run.highest("changes_per_s", changes / watch.seconds());
}

}  // namespace vqtorture
