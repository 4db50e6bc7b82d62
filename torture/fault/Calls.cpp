// Faults of the true system calls, in a child that is traced.
#include <cstring>
#include <iterator>
#include <set>
#include <sstream>

#include "RegLib/trace/Trace.h"
#include "fault/Checks.h"
#include "fault/FaultedChild.h"
#include "fault/MoreOperations.h"
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
    bool isTraced;

    std::size_t run(vqtest::Agent& witness, Run& run, std::set<std::string>& failed) const;
    void judge(FaultedChild& child, Ground& ground, const Report& report) const;
    void judgeDescriptors(const FaultedChild& child, const Report& report) const;
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
        if (operation.healed) {
            operation.healed(scene);
        }
        comeOn(scene);
        if (operation.finish) {
            operation.finish(scene);
        }
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
    const bool isTextLost =
        child.hasDiskFailed("sync_file_range") || child.hasDiskFailed("fdatasync");
    const bool areNamesLost = child.hasDiskFailed("fsync") || child.hasDiskFailed("syncfs");
    outcome.mustFail = isTextLost || areNamesLost;
    outcome.isOut = child.failed() == "fsync " && areNamesLost;
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
    judgeDescriptors(child, report);
    for (const std::string& call : child.unknownCalls()) {
        throw Violation("nobody has judged the system call " + call);
    }
}

// A thread may have one until it ends. The log stays open, and when the look whether it still has its
// descriptor fails, that is left alone: it may be the program's by now.
void CallTrial::judgeDescriptors(const FaultedChild& child, const Report& report) const {
    std::size_t more = operation.hasThreads ? 1 : 0;
    if (isTraced) {
        more = 1 + child.failures("stat") + child.failures("fstat");
    }
    require(report.descriptorsAfter <= report.descriptorsBefore + more,
            "a descriptor is left open");
}

std::size_t CallTrial::run(vqtest::Agent& witness, Run& run, std::set<std::string>& failed) const {
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
    std::istringstream names(child.failed());
    failed.insert(std::istream_iterator<std::string>(names), {});
    return child.calls();
}

// Rounds over all places of operations.
class Rounds {
public:
    Rounds(Run& run, std::vector<Operation> operations, std::uint32_t traceLevel)
        : m_run(run),
          m_operations(std::move(operations)),
          m_isTraced(traceLevel != 0),
          m_log(traceLevel, m_isTraced ? vqtest::TraceLog::Directory::eCreate
                                       : vqtest::TraceLog::Directory::eLeaveMissing) {}

    // What the rounds are for is among the calls that have failed, or they are not what they should be.
    void failAll(const std::vector<std::string>& names) {
        for (std::size_t turn = m_run.seed(); turn < m_run.seed() + m_run.count(); ++turn) {
            for (const Operation& operation : m_operations) {
                failEachCall(operation, false, turn);
                failEachCall(operation, true, turn);
            }
        }
        for (const std::string& name : names) {
            require(m_failed.count(name) != 0, name + " has not failed once");
        }
        m_run.highest("kinds_of_calls", static_cast<double>(m_failed.size()));
    }

private:
    void failEachCall(const Operation& operation, bool isLasting, std::size_t turn) {
        // Those that take long are shared out among the rounds.
        const std::size_t step = operation.hasThreads ? 8 : 1;
        bool isReached = true;
        for (std::size_t at = turn % step; isReached; at += step) {
            const CallTrial trial{operation,
                                  {at, isLasting, turn / step + at},
                                  (turn / kMostChoices + at) % 2 == 0,
                                  m_isTraced};
            isReached = trial.run(m_witness, m_run, m_failed) > at;
            m_run.add("trials");
            m_run.highest("places", static_cast<double>(at));
        }
    }

    Run& m_run;
    const std::vector<Operation> m_operations;
    const bool m_isTraced;
    const vqtest::TraceLog m_log;  // before any process has a session
    vqtest::Agent m_witness{VQREG_AGENT_PATH};
    std::set<std::string> m_failed;
};

std::vector<Operation> allOf(std::initializer_list<std::vector<Operation>> lists) {
    std::vector<Operation> all;
    for (const std::vector<Operation>& list : lists) {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

void needTracing() {
    if (!FaultedChild::isPossible()) {
        throw CannotRun("the system calls of a child cannot be changed here");
    }
}

}  // namespace

void failCalls(Run& run) {
    needTracing();
    Rounds(run,
           allOf({{openingByRelativePath()},
                  changingOperations(),
                  operationsOfC(),
                  watchingOperations()}),
           0)
        .failAll({"openat", "inotify_init1", "inotify_add_watch", "faccessat2"});
}

void failSyncedCalls(Run& run) {
    needTracing();
    askForSync();
    Rounds(run, changingOperations(), 0).failAll({"fdatasync", "fsync"});
}

void failTracedCalls(Run& run) {
    needTracing();
    constexpr std::uint32_t kLevel = VQRegLib::eTraceChange | VQRegLib::eTraceLife;
    Rounds(run, allOf({{changeOfTomorrow()}, changingOperations()}), kLevel).failAll({"dup3"});
}

}  // namespace vqtorture
