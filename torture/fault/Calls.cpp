// Faults of the true system calls, in a child that is traced.
#include <cstring>

#include "fault/Checks.h"
#include "fault/FaultedChild.h"
#include "support/ForkedChild.h"
#include "support/Ground.h"
#include "support/TraceLog.h"

namespace vqtorture {

namespace {

// What the child tells: the code before the mark, the rest at its end.
struct Report {
    int code = 0;
    std::size_t descriptorsBefore = 0;
    std::size_t descriptorsAfter = 0;
    char violation[400] = {};
};

struct CallTrial {
    const Operation& operation;
    Plan plan;
    bool witnessChanges;

    std::size_t run(vqtest::Agent& witness, Run& run) const;
    void judge(FaultedChild& child, Ground& ground, const Report& report) const;
};

// Without memory, which calls can bring about too, some operations throw.
int actOrThrow(const Operation& operation, Scene& scene, bool& hasThrown) {
    try {
        return operation.act(scene);
    } catch (const VQException& exception) {
        hasThrown = true;
        const bool mayThrow = operation.mayThrow || operation.use != SessionUse::eUses;
        return mayThrow ? exception.m_lCode : 1;
    }
}

void act(const Operation& operation, const std::string& path, Report& report) {
    report.descriptorsBefore = openDescriptors();
    {
        Scene scene(path, operation.root);
        if (operation.use == SessionUse::eUses) {
            scene.open();
        }
        if (operation.prepare) {
            operation.prepare(scene);
        }
        bool hasThrown = false;
        FaultedChild::begin();
        report.code = actOrThrow(operation, scene, hasThrown);
        FaultedChild::end();
        if (hasThrown) {
            scene.session.reset();  // nobody else can enter it
        }
        comeOn(scene);
    }
    report.descriptorsAfter = openDescriptors();
}

int runChild(const Operation& operation, const std::string& path, Report& report) {
    try {
        act(operation, path, report);
        return 0;
    } catch (const std::exception& violation) {
        std::strncpy(report.violation, violation.what(), sizeof report.violation - 1);
        return 1;
    }
}

Outcome outcomeOf(const Report& report, const FaultedChild& child) {
    Outcome outcome;
    outcome.code = report.code;
    outcome.mayBeOld = child.hasFailed("rename") || child.hasFailed("renameat2");
    outcome.mayLeaveFiles = outcome.mayBeOld || child.hasFailed("unlink");
    return outcome;
}

void CallTrial::judge(FaultedChild& child, Ground& ground, const Report& report) const {
    if (!child.runToEnd()) {
        throw Violation("the process ended with " + std::to_string(child.finish()) + ": " +
                        report.violation);
    }
    const Outcome outcome = outcomeOf(report, child);
    ground.judge(outcome, witnessChanges);
    const int status = child.finish();
    require(status == 0, "it goes on with " + std::to_string(status) + ": " + report.violation);
    ground.judgeEnd(outcome);
    require(report.descriptorsAfter <= report.descriptorsBefore + (operation.hasThreads ? 1 : 0),
            "a descriptor is left open");
}

std::size_t CallTrial::run(vqtest::Agent& witness, Run& run) const {
    Ground ground(run.directory(), operation, witness);
    vqtest::Common<Report> report;
    FaultedChild child({plan}, [&] { return runChild(operation, ground.path(), *report); });
    try {
        judge(child, ground, *report);
    } catch (const std::exception& violation) {
        throw Violation(operation.name + ", " + textOf(plan) + " (" +
                        child.failed().substr(0, 200) + "): " + violation.what());
    }
    run.add("calls_failed", static_cast<double>(child.failedCalls()));
    return child.calls();
}

void failEachCall(const Operation& operation, bool isLasting, std::size_t turn,
                  vqtest::Agent& witness, Run& run) {
    // Those that take long are shared out among the rounds.
    const std::size_t step = operation.hasThreads ? 8 : 1;
    bool isReached = true;
    for (std::size_t at = turn % step; isReached; at += step) {
        const CallTrial trial{
            operation, {at, isLasting, turn / step + at}, (turn / kMostChoices + at) % 2 == 0};
        isReached = trial.run(witness, run) > at;
        run.add("trials");
        run.highest("places", static_cast<double>(at));
    }
}

}  // namespace

void failCalls(Run& run) {
    if (!FaultedChild::isPossible()) {
        throw CannotRun("the system calls of a child cannot be changed here");
    }
    const vqtest::TraceLog quiet(0, vqtest::TraceLog::Directory::eLeaveMissing);
    vqtest::Agent witness(VQREG_AGENT_PATH);
    std::vector<Operation> operations = changingOperations();
    for (Operation& operation : watchingOperations()) {
        operations.push_back(operation);
    }
    for (std::size_t turn = run.seed(); turn < run.seed() + run.count(); ++turn) {
        for (const Operation& operation : operations) {
            failEachCall(operation, false, turn, witness, run);
            failEachCall(operation, true, turn, witness, run);
        }
    }
}

}  // namespace vqtorture
