// Faults of the file operations, in this process: every call, once and from then on; pairs of them; and
// the end of the process at each.
#include "fault/Checks.h"

#include <csignal>
#include <cstdlib>

#include "RegLib/trace/Trace.h"
#include "fault/FaultyFiles.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/Ground.h"
#include "support/Sequence.h"

namespace vqtorture {

namespace {

constexpr Place kPlaces[] = {Place::eUsual, Place::eNoLinks, Place::eNeither};

std::string placeName(Place place) {
    return place == Place::eUsual     ? ""
           : place == Place::eNoLinks ? ", without links"
                                      : ", without links and exchanges";
}

void quietTrace() {
    CRegLibTrace::m_lFakeMutex = 1;  // nothing else touches files
}

Outcome outcomeOf(int code, const FaultyFiles& files) {
    Outcome outcome;
    outcome.code = code;
    outcome.mayBeOld = files.hasFailed("rename");
    outcome.mayLeaveFiles = outcome.mayBeOld || files.hasFailed("unlink");
    outcome.hasKept = code == VQRegLib::REGLIB_E_FILE_OPEN &&
                      (files.hasFailed("create") || files.hasFailed("write") ||
                       files.hasFailed("send") || files.hasFailed("data"));
    outcome.isOut = files.failed() == "names ";
    outcome.mustFail =
        files.hasFailed("send") || files.hasFailed("data") || files.hasFailed("names");
    return outcome;
}

struct FileTrial {
    const Operation& operation;
    Place place;
    std::vector<Plan> plans;
    bool witnessChanges;

    std::string text() const {
        std::string all = operation.name + placeName(place);
        for (const Plan& plan : plans) {
            all += ", " + textOf(plan);
        }
        return all;
    }

    // How many calls there were, of which how many failed.
    std::size_t run(vqtest::Agent& witness, Run& run) const;
};

std::size_t FileTrial::run(vqtest::Agent& witness, Run& run) const {
    Ground ground(run.directory(), operation, witness);
    const std::size_t descriptors = openDescriptors();
    Outcome outcome;
    std::size_t calls = 0;
    {
        Scene scene(ground.path(), operation.root);
        if (operation.use == SessionUse::eUses) {
            scene.open();
        }
        if (operation.prepare) {
            operation.prepare(scene);
        }
        FaultyFiles files(place);
        files.arm(plans);
        const int code = operation.act(scene);
        files.heal();
        calls = files.calls();
        outcome = outcomeOf(code, files);
        run.add("calls_failed",
                static_cast<double>(std::count(files.failed().begin(), files.failed().end(), ' ')));
        ground.judge(outcome, witnessChanges);
        comeOn(scene);
    }
    ground.judgeEnd(outcome);
    require(openDescriptors() == descriptors, "a descriptor is left open");
    return calls;
}

// Runs a trial, and says which it was when it does not hold.
std::size_t tryFiles(const FileTrial& trial, vqtest::Agent& witness, Run& run) {
    try {
        return trial.run(witness, run);
    } catch (const std::exception& violation) {
        throw Violation(trial.text() + ": " + violation.what());
    }
}

void failEachCall(const Operation& operation, Place place, bool isLasting, std::size_t turn,
                  vqtest::Agent& witness, Run& run) {
    bool isReached = true;
    std::size_t at = 0;
    for (; isReached; ++at) {
        const FileTrial trial{
            operation, place, {{at, isLasting, turn + at}}, (turn / kMostChoices + at) % 2 == 0};
        isReached = tryFiles(trial, witness, run) > at;
        run.add("trials");
    }
    run.add("places", static_cast<double>(at - 1));
}

// Another process dies after it has replaced the file and before it says so: whoever comes next finds the
// mark of the replacement, and mends what it can. The dead one's text stays.
Operation numberAfterADeath() {
    Operation made = changingOperations().front();
    for (const Operation& each : changingOperations()) {
        made = each.name == "a number" ? each : made;
    }
    made.name = "a number after a death";
    const std::string line = "\"Number\"=dword:00000001";
    made.found.replace(made.found.find(line), line.size(), "\"Number\"=dword:00000003");
    made.prepare = [](Scene& scene) {
        vqtest::ForkedChild child([&scene] {
            Scene others(scene.path);
            others.open();
            FaultyFiles files(Place::eUsual);
            constexpr std::size_t kLastRename = 8;
            files.armDeath(kLastRename, true);
            (void)others.session->VQRegSetValue(others.rootKey(), "Number", 3ul);
            return 0;
        });
        require(child.wait() == -SIGKILL, "it did not die");
        require(vqtest::readFile(scene.path).find("dword:00000003") != std::string::npos,
                "it died before its text took the file's place");
    };
    return made;
}

std::vector<Operation> operations() {
    std::vector<Operation> all = changingOperations();
    all.push_back(numberAfterADeath());
    return all;
}

// The child dies at the call. False when it did not come so far.
bool dieAt(const Operation& operation, Place place, std::size_t at, bool isAfterwards, bool isAlone,
           vqtest::Agent& witness, const Run& run) {
    Ground ground(run.directory(), operation, witness);
    if (isAlone) {
        ground.dismissWitness();
    }
    const pid_t self = ::getpid();
    vqtest::ForkedChild child([&] {
        vqtest::endWithParent(self);
        Scene scene(ground.path(), operation.root);
        if (operation.use == SessionUse::eUses) {
            scene.open();
        }
        if (operation.prepare) {
            operation.prepare(scene);
        }
        FaultyFiles files(place);
        files.armDeath(at, isAfterwards);
        (void)operation.act(scene);
        return 0;
    });
    const int status = child.wait();
    require(status == 0 || status == -SIGKILL, "the child ended with " + std::to_string(status));
    ground.judgeDeath();
    return status != 0;
}

// At each of its calls until it makes no more.
void dieEverywhere(const Operation& operation, Place place, bool isAfterwards, bool isAlone,
                   vqtest::Agent& witness, Run& run) {
    bool hasDied = true;
    for (std::size_t at = 0; hasDied; ++at) {
        try {
            hasDied = dieAt(operation, place, at, isAfterwards, isAlone, witness, run);
        } catch (const std::exception& violation) {
            throw Violation(operation.name + placeName(place) + ", dies at call " +
                            std::to_string(at) + (isAlone ? ", alone: " : ": ") + violation.what());
        }
        run.add("deaths", hasDied);
    }
}

}  // namespace

void askForSync() {
    ::setenv("VQREG_SYNC", "1", 1);
}

void failFiles(Run& run) {
    quietTrace();
    vqtest::Agent witness(VQREG_AGENT_PATH);
    for (std::size_t turn = run.seed(); turn < run.seed() + run.count(); ++turn) {
        for (const Operation& operation : operations()) {
            for (const Place place : kPlaces) {
                failEachCall(operation, place, false, turn, witness, run);
                failEachCall(operation, place, true, turn, witness, run);
            }
        }
    }
}

void failPairs(Run& run) {
    quietTrace();
    constexpr std::uint64_t kMostCalls = 16;
    vqtest::Agent witness(VQREG_AGENT_PATH);
    const std::vector<Operation> all = operations();
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        const std::size_t first = run.below(kMostCalls);
        const std::size_t second = first + 1 + run.below(kMostCalls);
        const FileTrial trial{
            all[run.below(all.size())],
            kPlaces[run.below(std::size(kPlaces))],
            {{first, false, run.below(64)}, {second, run.below(2) == 0, run.below(64)}},
            run.below(2) == 0};
        tryFiles(trial, witness, run);
        run.add("trials");
    }
}

void failSyncedFiles(Run& run) {
    askForSync();
    failFiles(run);
}

void failSyncedPairs(Run& run) {
    askForSync();
    failPairs(run);
}

void failInSequences(Run& run) {
    quietTrace();
    constexpr std::uint64_t kOperations = 25;
    constexpr std::uint64_t kCalls = 8 * kOperations;
    vqtest::Agent witness(VQREG_AGENT_PATH);
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        Sequence sequence(run.directory(), witness);
        FaultyFiles files(kPlaces[run.below(std::size(kPlaces))]);
        std::vector<Plan> plans;
        for (std::uint64_t faults = 1 + run.below(kCalls / 4); faults > 0; --faults) {
            plans.push_back({run.below(kCalls), false, run.below(64)});
        }
        files.arm(plans);
        for (std::uint64_t steps = 0; steps < kOperations; ++steps) {
            sequence.step(run);
        }
        files.heal();
        sequence.judge(files.hasFailed("rename") || files.hasFailed("unlink"));
        run.add("calls_failed",
                static_cast<double>(std::count(files.failed().begin(), files.failed().end(), ' ')));
    }
}

void dieAtFiles(Run& run) {
    quietTrace();
    vqtest::Agent witness(VQREG_AGENT_PATH);
    for (std::uint64_t turn = run.seed(); turn < run.seed() + run.count(); ++turn) {
        for (const Operation& operation : operations()) {
            for (const Place place : kPlaces) {
                dieEverywhere(operation, place, turn % 2 != 0, false, witness, run);
                dieEverywhere(operation, place, turn % 2 != 0, true, witness, run);
            }
        }
    }
}

void dieAtSyncedFiles(Run& run) {
    askForSync();
    dieAtFiles(run);
}

}  // namespace vqtorture
