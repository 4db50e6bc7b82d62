// Children of a process whose other threads are busy, which use the library, or end, or become other
// programs.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "ends/Busy.h"
#include "ends/Checks.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/ForksWithThreads.h"
#include "support/Handlers.h"
#include "support/Sessions.h"
#include "support/TempStore.h"

namespace {

bool isChildOfFork = false;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the name that the sanitizer looks for, where there is one
// What the threads of its parent held is not reachable in a child.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
    return isChildOfFork ? 1 : 0;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace vqtorture {

namespace {

using VQRegLib::REGLIB_OK;
using vqtest::CRegLib;

constexpr unsigned kPatienceSeconds = 20;
constexpr int kOk = 0;
constexpr int kWrong = 1;
constexpr int kRefused = 2;  // as the child of a fork that has waited in vain is refused everything
constexpr int kExit = 3;

enum eUse { eNothing, eExits, eChanges, eUpdates, eOpens, eRegisters, eUses };

constexpr const char* kUses[] = {"nothing", "exit", "change", "update", "open", "register"};

// In the child.
int changeIn(CRegLib& session, bool inUpdate) {
    std::unique_ptr<VQRegLib::CRegUpdate> update;
    if (inUpdate) {
        update = std::make_unique<VQRegLib::CRegUpdate>(session);
    }
    const int set = vqtest::setNumber(session, "Child", static_cast<unsigned long>(::getpid()));
    const int end = update ? update->end() : REGLIB_OK;
    if (set != REGLIB_OK || end != REGLIB_OK) {
        return kWrong;
    }
    return vqtest::numberOf(session, "Child") == ::getpid() ? kOk : kWrong;
}

int openIn(const std::string& path) {
    const auto session = vqtest::openSession(path, "Child");
    return session->RootKey() ? changeIn(*session, false) : kWrong;
}

int registerIn(CRegLib& session) {
    vqtest::Handler handler;
    session.SetRegistryChangeHandler(&handler);
    const int sent = session.SendRegistryChangeNotification();
    session.ClrRegistryChangeHandler(&handler);
    return sent == REGLIB_OK ? kOk : kWrong;
}

int use(eUse what, CRegLib& session, const std::string& path) {
    if (what == eNothing) {
        return kOk;
    }
    if (what == eExits) {
        isChildOfFork = true;
        std::exit(kExit);
    }
    if (!session.RootKey()) {
        return kRefused;
    }
    switch (what) {
        case eOpens:
            return openIn(path);
        case eRegisters:
            return registerIn(session);
        default:
            return changeIn(session, what == eUpdates);
    }
}

void forkOnce(Run& run, CRegLib& session, const std::string& path, bool mayBeRefused) {
    const auto what = static_cast<eUse>(run.below(eUses));
    const pid_t parent = ::getpid();
    const auto start = std::chrono::steady_clock::now();
    vqtest::ForkedChild child([&] {
        vqtest::endWithParent(parent, kPatienceSeconds);
        return use(what, session, path);
    });
    run.highest("longest_fork_ms",
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                    .count());
    const int status = child.wait();
    const std::string words =
        std::string("a child that is to ") + kUses[what] + " ended with " + std::to_string(status);
    if (status == kRefused) {
        require(mayBeRefused, words);
        run.add("refused");
    } else {
        require(status == (what == eExits ? kExit : kOk), words);
    }
    run.add("forks");
}

void forkBeside(Run& run, std::uint64_t count, bool alsoOpening) {
    const vqtest::TempStore store(run.directory());
    const auto session = vqtest::openSession(store.path());
    BusyThreads busy(store.directory(), alsoOpening);
    const long before = busy.turns();
    for (std::uint64_t i = 1; i <= count; ++i) {
        forkOnce(run, *session, store.path(), alsoOpening);
        require(vqtest::setNumber(*session, "Parent", i) == REGLIB_OK &&
                    vqtest::numberOf(*session, "Parent") == static_cast<long>(i),
                "the parent is disturbed");
    }
    require(busy.failures() == 0, "a busy thread is refused something");
    require(busy.turns() > before, "no thread was busy");
    run.add("turns_of_busy_threads", static_cast<double>(busy.turns() - before));
}

// Becomes a program that tells by its exit status how many descriptors it has got.
[[noreturn]] void becomeProgram() {
    ::execl(VQREG_DESCRIPTORS_PATH, VQREG_DESCRIPTORS_PATH, static_cast<char*>(nullptr));
    ::_exit(127);
}

// The child of a fork becomes another program.
void executeInChild(Run& run) {
    const pid_t parent = ::getpid();
    vqtest::ForkedChild child([&]() -> int {
        vqtest::endWithParent(parent, kPatienceSeconds);
        becomeProgram();
    });
    const int status = child.wait();
    require(status == 0, "a program begins with " + std::to_string(status) + " descriptors");
    run.add("programs");
}

// A process becomes another program in the middle of an update, with its other threads at work.
void executeInUpdate(Run& run, const vqtest::TempStore& store, CRegLib& session) {
    const pid_t parent = ::getpid();
    vqtest::ForkedChild child([&]() -> int {
        vqtest::endWithParent(parent, kPatienceSeconds);
        const auto own = vqtest::openSession(store.path(), "Own");
        vqtest::Handler handler;
        own->SetRegistryChangeHandler(&handler);
        const BusyThreads busy(store.directory(), false);
        if (own->VQRegBeginUpdate() != REGLIB_OK || vqtest::setNumber(*own, "Half", 1) < 0) {
            return 126;
        }
        becomeProgram();
    });
    const int status = child.wait();
    require(status == 0, "a program that was another one begins with " + std::to_string(status));
    require(store.isUnlocked(), "a program keeps a lock of what it was before");
    require(vqtest::setNumber(session, "Parent", 1 + run.below(1000)) >= 0, "a set is refused");
    require(store.read().find("Half") == std::string::npos, "half of an update was written");
    run.add("programs");
}

}  // namespace

void forkBesideBusyThreads(Run& run) {
    forkBeside(run, run.count() - run.count() / 4, false);
    forkBeside(run, run.count() / 4, true);
}

void executeFromBusyProcess(Run& run) {
    const vqtest::TempStore store(run.directory());
    {
        const auto session = vqtest::openSession(store.path());
        const std::uint64_t inUpdate = 1 + run.count() / 20;
        for (std::uint64_t i = 0; i < inUpdate; ++i) {
            executeInUpdate(run, store, *session);
        }
    }
    const vqtest::TempStore other(run.directory());
    const BusyThreads busy(other.directory(), true);
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        executeInChild(run);
    }
    require(busy.failures() == 0, "a busy thread is refused something");
}

}  // namespace vqtorture
