// For long: processes that live from beginning to end use everything of the library, in a storm of signals
// and forks, beside others that are killed and stopped all the time. What they use of memory, descriptors,
// threads, objects and System V memory must be in the last quarter what it was in the first. Files that
// are only there for a change are left by who is killed, one by each, and by nobody else.
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "VQRegLib.h"
#include "load/Load.h"
#include "load/Usage.h"
#include "support/Children.h"
#include "support/Handlers.h"
#include "support/Ledger.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

constexpr int kKeys = 20;
constexpr std::size_t kFodder = 3;
constexpr auto kSample = std::chrono::milliseconds(100);
constexpr double kLivingWithHandlers = kFodder + 1;
constexpr double kLeftSeconds = 10;  // a notification takes away what has been nobody's for less

struct World {
    Ledger ledger;
    std::atomic<unsigned long> forks;
    std::atomic<unsigned long> registrations;
    std::atomic<unsigned long> alarms;
    std::atomic<unsigned long> sessions;
};

World* theWorld = nullptr;  // for the signal handler

void raiseStorm(World& world) {
    theWorld = &world;
    struct sigaction action {};
    action.sa_handler = [](int) { ++theWorld->alarms; };
    ::sigaction(SIGALRM, &action, nullptr);
    itimerval interval{};
    interval.it_interval.tv_usec = 1000;
    interval.it_value.tv_usec = 1000;
    ::setitimer(ITIMER_REAL, &interval, nullptr);
}

void requireDone(World& world, const char* what, int code) {
    if (code < 0) {
        world.ledger.noteFault(what, code, 0);
    }
}

// Keys come and go, always the same; what each of them holds is read back.
void useKeys(World& world, const std::string& path, unsigned seed) {
    std::minstd_rand random(seed);
    while (!world.ledger.isOver && world.ledger.faults == 0) {
        const auto session = vqtest::openSession(path);
        ++world.sessions;
        for (int i = 0; i < kKeys; ++i) {
            const std::string name = std::to_string(seed) + "-" + std::to_string(random() % kKeys);
            CRegKey key;
            requireDone(world, "a key", session->VQRegCreateKey(nullptr, name.c_str(), key, 1));
            requireDone(world, "a text", session->VQRegSetValue(key, "Text", name.c_str()));
            if (random() % 2 == 0) {
                requireDone(world, "a deletion", session->VQRegDeleteValue(key, "Text"));
            }
        }
        std::string name;
        for (int i = 0; session->VQRegEnumKeys(*session->RootKey(), i, name) >= 0; ++i) {
        }
    }
}

void useHandlers(World& world, const std::string& path) {
    while (!world.ledger.isOver && world.ledger.faults == 0) {
        const auto session = vqtest::openSession(path, "Watched");
        vqtest::Handler handler;
        session->SetRegistryChangeHandler(&handler);
        requireDone(world, "a notification", session->SendRegistryChangeNotification());
        session->ClrRegistryChangeHandler(&handler);
        ++world.registrations;
    }
}

void count(World& world, const std::string& path) {
    const auto session = vqtest::openSession(path);
    while (!world.ledger.isOver && world.ledger.faults == 0) {
        countUp(*session, world.ledger);
        readNewest(*session, world.ledger);
    }
}

// Has several threads, each with a session, and forks. Its children do nothing: other threads may have
// been inside a call.
int useInThreads(World& world, const std::string& path) {
    raiseStorm(world);
    std::deque<std::thread> threads;
    threads.emplace_back([&] { count(world, path); });
    threads.emplace_back([&] { useKeys(world, path, 1); });
    threads.emplace_back([&] { useHandlers(world, path); });
    while (!world.ledger.isOver && world.ledger.faults == 0) {
        ForkedChild([] { return 0; }).wait();
        ++world.forks;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

// Has one thread, whose children go on with its session.
int useInChildren(World& world, const std::string& path) {
    const auto session = vqtest::openSession(path);
    while (!world.ledger.isOver && world.ledger.faults == 0) {
        countUp(*session, world.ledger);
        ForkedChild child([&] { return countUp(*session, world.ledger) ? 0 : 1; });
        if (child.wait() != 0) {
            world.ledger.noteFault("a child ended with", child.wait(), 0);
        }
        ++world.forks;
    }
    return 0;
}

// Lives until it is killed, at a time when nobody knows what it is doing.
int beFodder(World& world, const std::string& path) {
    const auto session = vqtest::openSession(path);
    vqtest::Handler handler;
    handler.watch(session);
    ++world.ledger.ready;
    while (!world.ledger.isOver) {
        countUp(*session, world.ledger);
        readNewest(*session, world.ledger);
    }
    return 0;
}

class Soak {
public:
    explicit Soak(Run& run)
        : m_run(run),
          m_path(run.directory() + "/store.cfg"),
          m_seconds(static_cast<unsigned>(run.count()) + 60) {
        makeCounter(m_path);
        m_threads = start([this] { return useInThreads(*m_world, m_path); });
        m_children = start([this] { return useInChildren(*m_world, m_path); });
        for (std::size_t i = 0; i < kFodder; ++i) {
            m_fodder[i] = start([this] { return beFodder(*m_world, m_path); });
        }
    }

    void play() {
        double sampled = -1;
        while (m_watch.seconds() < static_cast<double>(m_run.count()) &&
               m_world->ledger.faults == 0) {
            disturb();
            if (m_watch.milliseconds() - sampled > static_cast<double>(kSample.count())) {
                sampled = m_watch.milliseconds();
                sample();
            }
        }
    }

    void end() {
        m_world->ledger.isOver = true;
        for (const auto& one : m_fodder) {
            requireEnd(*one, "one that may be killed");
        }
        requireEnd(*m_threads, "the process of many threads");
        requireEnd(*m_children, "the process of many children");
        requireAllCounted(m_world->ledger, m_path, false);
        requireNothingLeft("one that ends");
    }

    void judge() {
        for (const char* const who : {"threads", "children"}) {
            m_usage.requireFlat(m_run, std::string(who) + "_memory_KiB", 0.1, 512);
            m_usage.requireFlat(m_run, std::string(who) + "_descriptors", 0, 4);
            m_usage.requireFlat(m_run, std::string(who) + "_tasks", 0, 2);
        }
        m_usage.requireFlat(m_run, "semaphores", 0, 5);
        m_usage.requireFlat(m_run, "objects", 0, 0);
        m_usage.requireFlat(m_run, "segments", 0, 2);
        m_run.add("temporary_files_left", m_left);
        report();
    }

private:
    template <typename Body>
    std::unique_ptr<ForkedChild> start(Body body) {
        const pid_t parent = ::getpid();
        // Its alarms are for the storm, so it has no other limit than its parent's life.
        return std::make_unique<ForkedChild>([this, parent, body] {
            vqtest::endWithParent(parent, m_seconds);
            return body();
        });
    }

    // Stops one for a moment, or kills it and begins another.
    void disturb() {
        std::unique_ptr<ForkedChild>& one = m_fodder[m_run.below(kFodder)];
        if (m_run.below(4) == 0) {
            requireNothingLeft("one that lives");
            one->kill();
            ++m_kills;
            m_killedAt.push_back(m_watch.seconds());
            noteLeftByOne();
            one = start([this] { return beFodder(*m_world, m_path); });
        } else {
            ::kill(one->pid(), SIGSTOP);
            std::this_thread::sleep_for(std::chrono::milliseconds(m_run.below(10)));
            ::kill(one->pid(), SIGCONT);
            m_run.add("stops");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(m_run.below(20)));
    }

    void sample() {
        for (const auto& [who, process] :
             {std::pair{"threads", m_threads->pid()}, std::pair{"children", m_children->pid()}}) {
            m_usage.note(std::string(who) + "_memory_KiB", memoryOf(process));
            m_usage.note(std::string(who) + "_descriptors", descriptorsOf(process));
            m_usage.note(std::string(who) + "_tasks", threadsOf(process));
        }
        m_usage.note("semaphores", semaphoresButOfKilled());
        m_usage.note("objects", otherObjects());
        m_usage.note("segments", segments());
    }

    // Those of processes that have just been killed are still there, and how many die in a few seconds
    // differs.
    double semaphoresButOfKilled() {
        while (!m_killedAt.empty() && m_killedAt.front() < m_watch.seconds() - kLeftSeconds) {
            m_killedAt.pop_front();
        }
        const double all = semaphores();
        return std::min(
            all, std::max(kLivingWithHandlers, all - static_cast<double>(m_killedAt.size())));
    }

    // In an update nobody else has a file of a moment, so what is there has been left.
    double countLeft() const {
        Common<double> count;
        const auto counter = spawn([&] {
            const auto session = vqtest::openSession(m_path);
            const VQRegLib::CRegUpdate update(*session);
            *count = entriesBeside(m_path);
            return update.result() < 0 ? 1 : 0;
        });
        requireEnd(*counter, "who counts what is left");
        return *count;
    }

    void requireNothingLeft(const char* who) const {
        const double left = countLeft();
        require(left == m_left, std::string(who) + " has left " + std::to_string(left - m_left) +
                                    " temporary files");
    }

    void noteLeftByOne() {
        const double left = countLeft();
        require(left <= m_left + 1, "one that was killed has left " +
                                        std::to_string(left - m_left) + " temporary files");
        m_left = left;
    }

    void report() {
        m_run.add("kills", m_kills);
        m_run.add("forks", static_cast<double>(m_world->forks));
        m_run.add("alarms", static_cast<double>(m_world->alarms));
        m_run.add("registrations", static_cast<double>(m_world->registrations));
        m_run.add("sessions", static_cast<double>(m_world->sessions));
        m_run.add("changes", m_world->ledger.acknowledged);
        m_run.highest("longest_wait_ms", m_world->ledger.longestMilliseconds);
    }

    Run& m_run;
    const std::string m_path;
    const unsigned m_seconds;
    Common<World> m_world;
    const Stopwatch m_watch;
    Usage m_usage;
    double m_kills = 0;
    std::deque<double> m_killedAt;  // in the last seconds
    double m_left = 0;              // temporary files, by those who were killed
    std::unique_ptr<ForkedChild> m_threads;
    std::unique_ptr<ForkedChild> m_children;
    std::array<std::unique_ptr<ForkedChild>, kFodder> m_fodder;
};

}  // namespace

void soak(Run& run) {
    Soak soak(run);
    soak.play();
    soak.end();
    soak.judge();
}

}  // namespace vqtorture
