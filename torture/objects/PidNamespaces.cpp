// Processes whose ids mean nothing to each other: each is number 1 of a pid namespace of its own, and all
// share one /dev/shm. Their locks must exclude all the same, those of the killed must go, and a
// notification from outside must not take the semaphore of a living one for that of a dead one.
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <deque>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "objects/Objects.h"
#include "support/Children.h"
#include "support/Handlers.h"
#include "support/Ledger.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

constexpr unsigned kSeconds = 60;
constexpr int kNoNamespace = 99;

// Lives in a namespace of its own, as the first process of it. Killing it kills the namespace.
template <typename Body>
std::unique_ptr<ForkedChild> spawnFirst(Body body) {
    return spawn(
        [=]() mutable {
            if (::unshare(CLONE_NEWPID) != 0) {
                return kNoNamespace;
            }
            ForkedChild first([&] {
                ::prctl(PR_SET_PDEATHSIG, SIGKILL);
                ::alarm(kSeconds);
                return ::getpid() == 1 ? body() : kNoNamespace;
            });
            return first.wait();
        },
        kSeconds);
}

struct World {
    Ledger ledger;
    std::atomic<int> calls;
    std::atomic<int> watchers;
};

int work(World& world, const std::string& path, bool isWatching) {
    const auto session = vqtest::openSession(path);
    if (!session->RootKey()) {
        return 1;
    }
    vqtest::Handler handler([&world] { ++world.calls; });
    if (isWatching) {
        handler.watch(session);
        if (!vqtest::waitUntil([] { return vqtest::hasSemaphore(1); }) ||
            !vqtest::waitWatchers(1)) {
            return 2;
        }
        ++world.watchers;
    }
    while (!world.ledger.isOver && world.ledger.faults == 0) {
        countUp(*session, world.ledger);
        readNewest(*session, world.ledger);
    }
    return 0;
}

// Tells of a change until one of the watchers has been called.
void requireReached(World& world, VQRegLib::CRegLib& session, const std::string& path) {
    const int before = world.calls;
    require(vqtest::waitUntil([&] {
                vqtest::moveFileTime(path);
                session.SendRegistryChangeNotification();
                return world.calls > before;
            }),
            "a notification reaches nobody");
    require(vqtest::hasSemaphore(1), "the semaphore of a living process was removed");
}

// Kills one wherever it is, and puts another one in its place.
template <typename Spawn>
void replaceOne(Run& run, std::deque<std::unique_ptr<ForkedChild>>& workers, Spawn spawnWorker) {
    std::unique_ptr<ForkedChild>& one = workers[run.below(workers.size())];
    one->kill();
    one = spawnWorker(false);
    run.add("kills");
}

}  // namespace

void pidNamespaces(Run& run) {
    if (spawnFirst([] { return 0; })->wait() != 0) {
        throw CannotRun("no pid namespaces can be made here");
    }
    const std::string path = newPlace(run);
    makeCounter(path);
    Common<World> world;
    const auto spawnWorker = [&](bool isWatching) {
        return spawnFirst([&, isWatching] { return work(*world, path, isWatching); });
    };
    // Two that are killed now and then, and two that stay, are number 1 of different namespaces, and watch.
    std::deque<std::unique_ptr<ForkedChild>> workers;
    workers.push_back(spawnWorker(false));
    workers.push_back(spawnWorker(false));
    const auto one = spawnWorker(true);
    const auto other = spawnWorker(true);
    require(vqtest::waitUntil([&] { return world->watchers == 2; }), "nobody can watch");
    const auto sender = spawn(
        [&] {
            const auto session = vqtest::openSession(path);
            for (std::uint64_t i = 0; i < run.count() && world->ledger.faults == 0; ++i) {
                countUp(*session, world->ledger);
                requireReached(*world, *session, path);
                ++world->ledger.ready;
            }
            return 0;
        },
        kSeconds);
    while (world->ledger.ready < run.count() && world->ledger.faults == 0) {
        replaceOne(run, workers, spawnWorker);
        const std::uint32_t before = world->ledger.acknowledged;
        require(vqtest::waitUntil([&] {
                    return world->ledger.acknowledged > before || world->ledger.faults != 0 ||
                           world->ledger.ready >= run.count();
                }),
                "nobody gets on after a kill");
    }
    world->ledger.isOver = true;
    requireEnd(*sender, "the sender");
    requireEnd(*one, "a process of another namespace");
    requireEnd(*other, "a process of another namespace");
    for (const auto& worker : workers) {
        requireEnd(*worker, "a process of another namespace");
    }
    requireAllCounted(world->ledger, path, false);
    run.add("notifications", static_cast<double>(run.count()));
    run.add("changes", world->ledger.acknowledged);
    run.highest("longest_wait_ms", world->ledger.longestMilliseconds);
    std::filesystem::remove(vqtest::semaphoreFile(1));
    removePlace(path);
}

}  // namespace vqtorture
