// Handlers that come and go while they are being called.
#include <sched.h>

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ends/Checks.h"
#include "support/Handlers.h"
#include "support/Sessions.h"
#include "support/TempStore.h"

namespace vqtorture {

namespace {

using vqtest::CRegLib;

constexpr int kThreads = 3;
constexpr std::uint64_t kRegistrationsOfAStore = 200;  // a store is destroyed after so many
constexpr int kTurnsInside = 200;

// What is known of a handler, also when it is gone.
struct Life {
    std::atomic<int> calls{0};
    std::atomic<int> inside{0};
    std::atomic<bool> isOver{false};
};

// What all threads share. What does not hold is counted, for no thread may throw.
struct Scene {
    explicit Scene(const Run& run) : store(run.directory()) {}

    Life& newLife() {
        const std::lock_guard<std::mutex> guard(lock);
        return lives.emplace_back();
    }

    vqtest::TempStore store;
    std::unique_ptr<CRegLib> session = vqtest::openSession(store.path());
    std::atomic<int> calledWhenOver{0};
    std::atomic<int> insideWhenOver{0};
    std::atomic<int> refused{0};
    std::atomic<long> calls{0};
    std::atomic<long> clearedWhileInside{0};
    std::atomic<bool> isDone{false};
    std::mutex lock;
    std::deque<Life> lives;
};

enum eKind { ePlain, eLong, eClearsItself, eRegistersAnother, eReads, eThrows, eKinds };

class Passing : public VQRegLib::CRegistryChangeHandler {
public:
    Passing(Scene& scene, CRegLib& session, int kind)
        : m_scene(scene), m_session(session), m_kind(kind), m_life(scene.newLife()) {}

    Life& life() { return m_life; }

    void OnRegistryChange() override {
        Life& life = m_life;
        life.inside.fetch_add(1);
        if (life.isOver) {
            ++m_scene.calledWhenOver;
            return;
        }
        ++m_scene.calls;
        ++life.calls;
        act();
        life.inside.fetch_sub(1);
        if (m_kind == eThrows) {
            throw std::runtime_error("a handler that throws");
        }
    }

private:
    void act() {
        if (m_kind == eLong) {
            for (int turn = 0; turn < kTurnsInside; ++turn) {
                ::sched_yield();
            }
        } else if (m_kind == eClearsItself) {
            m_session.ClrRegistryChangeHandler(this);
        } else if (m_kind == eRegistersAnother) {
            Passing other(m_scene, m_session, ePlain);
            m_session.SetRegistryChangeHandler(&other);
            m_session.ClrRegistryChangeHandler(&other);
            other.life().isOver = true;
        } else if (m_kind == eReads && vqtest::numberOf(m_session, "Number") < 0) {
            ++m_scene.refused;
        }
    }

    Scene& m_scene;
    CRegLib& m_session;
    const int m_kind;
    Life& m_life;
};

void waitForCall(const Scene& scene, const Life& life) {
    while (life.calls == 0 && !scene.isDone) {
        ::sched_yield();
    }
}

void end(Scene& scene, Passing* passing) {
    Life& life = passing->life();
    life.isOver = true;
    scene.insideWhenOver += life.inside != 0 ? 1 : 0;
    delete passing;
}

void registerAndClear(Scene& scene, std::minstd_rand& random) {
    auto* const passing = new Passing(scene, *scene.session, static_cast<int>(random() % eKinds));
    scene.session->SetRegistryChangeHandler(passing);
    const std::uint64_t what = random() % 8;
    if (what == 0) {
        waitForCall(scene, passing->life());
    } else if (what < 4) {
        scene.session->SetRegistryChangeHandler(passing);
        ::sched_yield();
    }
    scene.clearedWhileInside += passing->life().inside != 0 ? 1 : 0;
    scene.session->ClrRegistryChangeHandler(passing);
    end(scene, passing);
}

// The store goes with its only session, and its handlers with it.
void destroyStore(Scene& scene, const std::string& root, std::minstd_rand& random) {
    auto session = vqtest::openSession(scene.store.path(), root.c_str());
    auto* const passing = new Passing(scene, *session, static_cast<int>(random() % 2));
    session->SetRegistryChangeHandler(passing);
    waitForCall(scene, passing->life());
    session.reset();
    end(scene, passing);
}

void work(Scene& scene, std::uint64_t seed, std::uint64_t count) {
    std::minstd_rand random(static_cast<std::uint_fast32_t>(seed));
    const std::string root = "Root" + std::to_string(seed);
    for (std::uint64_t i = 1; i <= count; ++i) {
        registerAndClear(scene, random);
        if (i % kRegistrationsOfAStore == 0) {
            destroyStore(scene, root, random);
        }
    }
}

void announce(Scene& scene) {
    const auto own = vqtest::openSession(scene.store.path(), "Announcer");
    while (!scene.isDone) {
        vqtest::moveFileTime(scene.store.path());
        scene.refused += own->SendRegistryChangeNotification() != VQRegLib::REGLIB_OK ? 1 : 0;
        ::sched_yield();
    }
}

}  // namespace

void clearHandlersWhileTheyRun(Run& run) {
    Scene scene(run);
    require(vqtest::setNumber(*scene.session, "Number", 1) == VQRegLib::REGLIB_OK, "no store");
    std::thread announcer([&] { announce(scene); });
    std::vector<std::thread> threads;
    const std::uint64_t share = (run.count() + kThreads - 1) / kThreads;
    for (int i = 0; i < kThreads; ++i) {
        const std::uint64_t seed = run.random()() % 1'000'000;
        threads.emplace_back([&scene, seed, share] { work(scene, seed, share); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    scene.isDone = true;
    announcer.join();
    run.add("registrations", static_cast<double>(share * kThreads));
    run.add("calls", static_cast<double>(scene.calls));
    run.add("cleared_while_running", static_cast<double>(scene.clearedWhileInside));
    run.add("stores_destroyed", static_cast<double>(share / kRegistrationsOfAStore * kThreads));
    require(scene.calledWhenOver == 0, "a handler was called after its removal");
    require(scene.insideWhenOver == 0, "a handler was running when its removal returned");
    require(scene.refused == 0, "something was refused");
    require(scene.calls > 0 && (run.count() < 1000 || scene.clearedWhileInside > 0),
            "no handler was called while it was removed");
}

}  // namespace vqtorture
