#include "memory/Trial.h"

#include <algorithm>

#include "support/Ground.h"
#include "support/Torture.h"
#include "support/Wait.h"

namespace vqtorture {

using namespace VQRegLib;

namespace {

const char* nameOf(Whose whose) {
    return whose == Whose::eEverybodys ? "anybody"
           : whose == Whose::eCallers  ? "the caller"
                                       : "a thread";
}

// All threads but the calling one wait for something.
bool areOthersAsleep() {
    const std::vector<vqtest::ThreadInfo> all = vqtest::threads();
    return std::count_if(all.begin(), all.end(),
                         [](const vqtest::ThreadInfo& thread) { return thread.state != 'S'; }) <= 1;
}

// Until the library's threads have done what the operation has set going.
void settle() {
    const Plenty plenty;
    int looks = 0;
    require(vqtest::waitUntil([&] {
                looks = areOthersAsleep() ? looks + 1 : 0;
                return looks == 3;
            }),
            "the threads do not come to rest");
}

// Once there is memory, a handler is called again; only where there was none for its thread it is not.
void requireHandlers(Scene& scene, bool isNewStore) {
    vqtest::Handler second;
    scene.session->SetRegistryChangeHandler(&second);
    settle();
    require(vqtest::countThreads("RegChgNotif") == 1, "there is no notifier");
    if (isNewStore || vqtest::countThreads("FileWatch") == 1) {
        vqtest::moveFileTime(scene.path);
        require(scene.session->SendRegistryChangeNotification() == REGLIB_OK, "it cannot notify");
        require(second.waitCalls(1), "a handler is not called");
    }
    scene.session->ClrRegistryChangeHandler(&second);
}

}  // namespace

std::string Trial::text() const {
    return operation.name + ", request " + std::to_string(at) +
           (isLasting ? " and all after it" : "") + " of " + nameOf(whose) +
           (isInChild ? ", in a new process" : "");
}

// Only what the header says may come out of it.
int Trial::act(Scene& scene, bool& hasThrown) const {
    try {
        return operation.act(scene);
    } catch (const VQException& exception) {
        const Plenty plenty;
        require(operation.mayThrow || isInChild, "it throws VQException");
        require(exception.m_lCode == REGLIB_E_FAIL,
                "it throws " + std::to_string(exception.m_lCode));
        hasThrown = true;
        return REGLIB_E_FAIL;
    }
}

int Trial::runShort(Scene& scene, Result& result, bool& hasThrown) const {
    Shortage shortage(at, isLasting, whose);
    const int code = act(scene, hasThrown);
    if (operation.hasThreads) {
        settle();
    }
    result.refused = shortage.end();
    return code;
}

void Trial::runInScene(Ground& ground, Outcome& outcome, Result& result) const {
    Scene scene(ground.path(), operation.root);
    if (operation.use == SessionUse::eUses) {
        scene.open();
    }
    if (operation.prepare) {
        operation.prepare(scene);
    }
    bool hasThrown = false;
    outcome.code = runShort(scene, result, hasThrown);
    {
        const Plenty plenty;
        ground.judge(outcome, witnessChanges);
    }
    if (hasThrown) {
        scene.session.reset();  // nobody else can enter it
    }
    const bool isNewStore = !scene.session;
    comeOn(scene);
    if (operation.hasThreads) {
        requireHandlers(scene, isNewStore);
    }
}

void Trial::run(const std::string& below, vqtest::Agent& witness, Result& result) const {
    std::optional<Ground> ground;
    std::size_t descriptors = 0;
    {
        const Plenty plenty;
        ground.emplace(below, operation, witness);
        descriptors = openDescriptors();
    }
    Outcome outcome;
    const long before = liveBlocks();
    runInScene(*ground, outcome, result);
    result.liveBlocks = liveBlocks() - before;
    const Plenty plenty;
    ground->judgeEnd(outcome);
    // A process that has a handler keeps its semaphore's file open.
    require(openDescriptors() <= descriptors + (operation.hasThreads ? 1 : 0),
            "a descriptor is left open");
    ground.reset();
}

}  // namespace vqtorture
