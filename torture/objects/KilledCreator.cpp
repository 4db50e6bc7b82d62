// A process that dies at any system call of the making of lock, block or semaphore: the others must get
// on at once, with one object of each kind, and none of them may be half made.
#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "objects/Objects.h"
#include "portable/Semaphore.h"
#include "support/Children.h"
#include "support/Handlers.h"
#include "support/Ledger.h"
#include "support/SteppedChild.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

using vqtest::SteppedChild;

constexpr unsigned kSeconds = 20;  // that anything may take

// What a creator does, what is there before it begins, and what must be so after its death.
struct Scene {
    const char* name;
    std::function<void()> prepare;
    std::function<int(const std::function<void()>& begin)> create;
    std::function<void(Run&)> others;
};

int makeStore(const std::string& path, Ledger& ledger) {
    const auto session = vqtest::openSession(path);
    return session->RootKey() && countUp(*session, ledger) ? 0 : 1;
}

// Two that come after the dead one, both at once.
void requireOthersGetOn(Run& run, const std::string& path, Ledger& ledger) {
    Common<std::array<Shared, 2>> shared;
    const auto getOn = [&](std::size_t own) {
        return spawn(
            [&, own] {
                const Stopwatch watch;
                const auto session = vqtest::openSession(path);
                ledger.noteWait(watch);
                if (!session->RootKey() || !countUp(*session, ledger)) {
                    return 1;
                }
                readNewest(*session, ledger);
                (*shared)[own] = sharedObjects(path);
                ++ledger.ready;
                return vqtest::waitUntil([&] { return ledger.ready == 2; }) ? 0 : 2;
            },
            kSeconds);
    };
    ledger.ready = 0;
    const auto one = getOn(0);
    const auto other = getOn(1);
    requireEnd(*one, "one who comes after");
    requireEnd(*other, "another one who comes after");
    require((*shared)[0].isWhole() && (*shared)[0] == (*shared)[1], "two locks or blocks");
    requireAllCounted(ledger, path, false);
    run.highest("longest_wait_ms", ledger.longestMilliseconds);
}

void requireSemaphoreWorks(Run& run, const std::string& name) {
    const Stopwatch watch;
    const auto heir = spawn(
        [&name] {
            VQRegLib::CPSemaphore semaphore(1, 0, 0x7fffffff, name, 1);
            if (!semaphore.own(VQRegLib::CPSemaphore::kAttempts)) {
                return 1;
            }
            VQRegLib::CPSemaphore(1, 0, 0x7fffffff, name, 1).release();
            const bool isReleased = semaphore.wait(1000, nullptr);
            return isReleased && VQRegLib::CPSemaphore(1, 0, 0x7fffffff, name, 1).isOpen() ? 0 : 2;
        },
        kSeconds);
    requireEnd(*heir, "who makes the semaphore next");
    run.highest("longest_wait_ms", watch.milliseconds());
    require(VQRegLib::CPSemaphore::removeIfOwnerless(name), "a dead process owns the semaphore");
}

// Kills the creator at a stop, one of those where a system call begins or ends. False when it had ended
// before.
bool killAt(const Scene& scene, int stop) {
    scene.prepare();
    SteppedChild creator([&](auto begin) { return scene.create(begin); });
    const vqtest::SteppedChildGuard guard(creator, kSeconds);
    const bool isAlive = creator.step(stop);
    creator.kill();
    require(!guard.isTooLate(), std::string(scene.name) + ": a creator waits");
    require(creator.status() == 0 || isAlive, std::string(scene.name) + ": a creator fails");
    return isAlive;
}

int countStops(const Scene& scene) {
    scene.prepare();
    SteppedChild creator([&](auto begin) { return scene.create(begin); });
    const vqtest::SteppedChildGuard guard(creator, kSeconds);
    int stops = 0;
    while (creator.step()) {
        ++stops;
    }
    require(creator.status() == 0, std::string(scene.name) + ": a creator fails");
    return stops;
}

// So many stops of a scene, each another one, all of them when there are no more.
void playScene(Run& run, const Scene& scene, std::uint64_t kills) {
    std::vector<int> stops(static_cast<std::size_t>(countStops(scene)));
    std::iota(stops.begin(), stops.end(), 1);
    std::shuffle(stops.begin(), stops.end(), run.random());
    run.highest(std::string("stops_of_") + scene.name, static_cast<double>(stops.size()));
    stops.resize(std::min<std::size_t>(stops.size(), kills));
    for (const int stop : stops) {
        try {
            run.add("kills", killAt(scene, stop) ? 1 : 0);
            scene.others(run);
        } catch (const Violation& violation) {
            throw Violation(std::string(scene.name) + ", stop " + std::to_string(stop) + ": " +
                            violation.what());
        }
    }
}

// Whatever one scene leaves is gone when the next kill begins.
class Stores {
public:
    explicit Stores(Run& run) : m_run(run) {}
    ~Stores() { clear(); }

    // Nothing at all, or a store whose objects alone have gone.
    void beginAnew(bool hasFile) {
        clear();
        m_path = newPlace(m_run);
        m_ledger = std::make_unique<Common<Ledger>>();
        if (hasFile) {
            makeCounter(m_path);
            removeObjects(m_path);
        } else {
            removeDefaultStore();
        }
    }
    const std::string& path() const { return m_path; }
    Ledger& ledger() { return **m_ledger; }

private:
    void clear() {
        if (!m_path.empty()) {
            removePlace(m_path);
        }
    }

    Run& m_run;
    std::string m_path;
    std::unique_ptr<Common<Ledger>> m_ledger;
};

Scene storeScene(const char* name, Stores& stores, bool hasFile) {
    return {name, [&stores, hasFile] { stores.beginAnew(hasFile); },
            [&stores](const std::function<void()>& begin) {
                begin();
                return makeStore(stores.path(), stores.ledger());
            },
            [&stores](Run& run) { requireOthersGetOn(run, stores.path(), stores.ledger()); }};
}

// The process that does all this keeps its id, so the name of its semaphore stays the same.
Scene semaphoreScene(const std::string& name) {
    return {"a_semaphore", [] { std::filesystem::remove(vqtest::semaphoreFile()); },
            [name](const std::function<void()>& begin) {
                begin();
                VQRegLib::CPSemaphore semaphore(1, 0, 0x7fffffff, name, 1);
                return semaphore.own(VQRegLib::CPSemaphore::kAttempts) ? 0 : 1;
            },
            [name](Run& run) { requireSemaphoreWorks(run, name); }};
}

}  // namespace

void killedCreator(Run& run) {
    if (!SteppedChild::isPermitted()) {
        throw CannotRun("a process may not trace its child here");
    }
    Stores stores(run);
    playScene(run, storeScene("nothing", stores, false), run.count());
    playScene(run, storeScene("a_file_alone", stores, true), run.count());
    playScene(run, semaphoreScene(vqtest::semaphoreName()), run.count());
}

}  // namespace vqtorture
