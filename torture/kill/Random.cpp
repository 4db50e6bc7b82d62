// Deaths at any instant.
#include <sched.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include "kill/Checks.h"
#include "kill/Ground.h"
#include "support/ChildLife.h"
#include "support/Handlers.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

constexpr std::uint64_t kMicrosecondsOfChanges = 3000;
constexpr std::uint64_t kMicrosecondsOfAnOpening = 1500;
// The starter of the thread looks every tenth of a second whether it has started.
constexpr std::uint64_t kMicrosecondsOfAThreadsStart = 2000;
constexpr std::uint64_t kMicrosecondsUntilTheLook = 100'000;

std::uint64_t randomDelay(Run& run, Deed deed) {
    switch (deed) {
        case Deed::eOpen:
            return run.below(kMicrosecondsOfAnOpening);
        case Deed::eRegister:
            return run.below(kMicrosecondsOfAThreadsStart) +
                   (run.below(3) == 0 ? kMicrosecondsUntilTheLook : 0);
        default:
            return run.below(kMicrosecondsOfChanges);
    }
}

void sleepMicroseconds(std::uint64_t microseconds) {
    const timespec time{0, static_cast<long>(microseconds) * 1000};
    ::nanosleep(&time, nullptr);
}

void killOnce(Run& run, Ground& ground, bool isBesideChanges) {
    const pid_t parent = ::getpid();
    vqtest::ForkedChild child([&] {
        vqtest::endWithParent(parent);
        Doer doer(ground.deed(), ground.path(), ground.progress());
        becomeUserOf(ground.what());
        doer.prepare();
        ground.progress().isReady = true;
        while (doer.once()) {
        }
        return 1;
    });
    require(vqtest::waitUntil([&] { return ground.progress().isReady.load(); }),
            "the process does not begin");
    const std::uint32_t first = ground.progress().done;
    if (isBesideChanges) {
        ground.letOtherChange();
    }
    sleepMicroseconds(randomDelay(run, ground.deed()));
    const int status = child.kill();
    require(status == -SIGKILL, "it ended by itself with " + std::to_string(status));
    run.add("kills");
    run.add(std::string("done_") + nameOf(ground.deed()), ground.progress().done - first);
    ground.judgeDeath();
}

// What the dead have left of semaphores, a sender takes away when it is no longer new.
void expectNoSemaphores(Run& run, Others& others) {
    run.highest("semaphores_left", static_cast<double>(vqtest::semaphoreFiles().size()));
    require(vqtest::waitUntil([&] {
                others.second.send();
                return vqtest::semaphoreFiles().size() == 1;
            }),
            "semaphores of the dead stay");
}

}  // namespace

void killAtRandom(Run& run) {
    Others others;
    const std::vector<Case> cases = allCases(run);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::uint64_t begin = run.count() * i / cases.size();
        const std::uint64_t end = run.count() * (i + 1) / cases.size();
        std::optional<Ground> ground;
        for (std::uint64_t kill = begin; kill < end; ++kill) {
            if (!ground || cases[i].scene == Scene::eNothing) {
                ground.reset();
                ground.emplace(run, others, cases[i]);
            }
            const bool isBesideChanges = cases[i].scene == Scene::eWitnessed && kill % 2 == 0;
            told(cases[i].words() + ", death " + std::to_string(kill - begin + 1),
                 [&] { killOnce(run, *ground, isBesideChanges); });
        }
        if (ground && cases[i].deed == Deed::eRegister && cases[i].scene == Scene::eWitnessed) {
            expectNoSemaphores(run, others);
        }
    }
}

}  // namespace vqtorture
