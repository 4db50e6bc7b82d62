// Processes that end, and modules that are unloaded, while threads use the library.
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "ends/Busy.h"
#include "ends/Checks.h"
#include "support/ChildLife.h"
#include "support/ChildProcess.h"
#include "support/ForkedChild.h"
#include "support/Handlers.h"
#include "support/Sessions.h"
#include "support/TempStore.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

using VQRegLib::REGLIB_OK;
using vqtest::CRegLib;

constexpr unsigned kPatienceSeconds = 20;
constexpr int kStatus = 5;
constexpr std::uint64_t kUnloadingsOfAHost = 5;
constexpr int kOtherOrder = 1;
constexpr std::uint64_t kEndsForOneSemaphore = 20;

// What ends the process.
enum eEnd { eExit, eQuickExit, eExitWithStatics, eExitInUpdate, eExitInHandler, eEnds };

constexpr const char* kEnds[] = {"exit", "quick_exit", "exit, which closes sessions",
                                 "exit in an update", "exit in a handler"};

// Destroyed by exit.
struct Statics {
    std::unique_ptr<CRegLib> session;
    std::unique_ptr<vqtest::Handler> handler;
};

[[noreturn]] void endByHandler(CRegLib& session, const std::string& path) {
    auto& handler = *new vqtest::Handler([] { std::exit(kStatus); });
    session.SetRegistryChangeHandler(&handler);
    for (;;) {
        vqtest::moveFileTime(path);
        session.SendRegistryChangeNotification();
        ::usleep(1000);
    }
}

// In the child, with its threads at work.
[[noreturn]] void end(eEnd how, const std::string& path) {
    static Statics statics;
    auto& session = *vqtest::openSession(path).release();
    if (!session.RootKey()) {
        std::_Exit(kOtherOrder);
    }
    switch (how) {
        case eQuickExit:
            std::quick_exit(kStatus);
        case eExitWithStatics:
            statics.handler = std::make_unique<vqtest::Handler>();
            statics.session = vqtest::openSession(path, "Statics");
            statics.session->SetRegistryChangeHandler(statics.handler.get());
            std::exit(kStatus);
        case eExitInUpdate:
            session.VQRegBeginUpdate();
            vqtest::setNumber(session, "Half", 1);
            std::exit(kStatus);
        case eExitInHandler:
            endByHandler(session, path);
        default:
            std::exit(kStatus);
    }
}

// True when a process that ended in order left its semaphore, as it may when the end strikes a thread that is
// just making it, or is notifying and has found the name. The next sender takes it away.
bool endOnce(Run& run, const vqtest::TempStore& store) {
    const auto how = static_cast<eEnd>(run.below(eEnds));
    const auto microseconds = static_cast<useconds_t>(run.below(3000));
    const pid_t parent = ::getpid();
    vqtest::ForkedChild child([&]() -> int {
        vqtest::endWithParent(parent, kPatienceSeconds);
        new BusyThreads(store.directory(), run.below(2) == 0);  // until the end
        ::usleep(microseconds);
        end(how, store.path());
    });
    const int status = child.wait();
    require(status == kStatus, kEnds[how] + std::string(" ended with ") + std::to_string(status));
    require(store.isUnlocked(), "a lock is left");
    require(!store.exists() || store.read().find("Half") == std::string::npos,
            "half of an update was written");
    run.add("ends");
    return how != eQuickExit && vqtest::hasSemaphore(child.pid());
}

}  // namespace

void exitWithThreads(Run& run) {
    const vqtest::TempStore store(run.directory());
    std::uint64_t left = 0;
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        left += endOnce(run, store) ? 1 : 0;
    }
    run.add("semaphores_left", static_cast<double>(left));
    require(left <= 1 + run.count() / kEndsForOneSemaphore,
            std::to_string(left) + " processes that ended in order left their semaphores");
    const auto session = vqtest::openSession(store.path());
    require(vqtest::waitUntil([&] {
                session->SendRegistryChangeNotification();
                return vqtest::semaphoreFiles().empty();
            }),
            "semaphores of the ended stay");
}

// The host loads a module, which watches a store with a thread of the library, and unloads it.
void unloadWithThreads(Run& run) {
    const vqtest::TempStore store(run.directory());
    store.write("[Velquist]\n");
    for (std::uint64_t done = 0; done < run.count(); done += kUnloadingsOfAHost) {
        vqtest::ChildProcess host(VQREG_PLUGIN_HOST_PATH, {VQREG_PLUGIN_PATH, store.path(),
                                                           std::to_string(kUnloadingsOfAHost)});
        require(host.line() == "unloaded", "the module cannot be loaded and unloaded");
        require(vqtest::countThreads("RegChgNotif", host.pid()) == 1,
                "no thread outlives the module");
        const vqtest::CommandResult result = host.finish();
        require(result.status == 0, "the host ended with " + std::to_string(result.status));
        require(!vqtest::hasSemaphore(host.pid()), "the host leaves its semaphore");
        run.add("unloadings", static_cast<double>(kUnloadingsOfAHost));
    }
}

}  // namespace vqtorture
