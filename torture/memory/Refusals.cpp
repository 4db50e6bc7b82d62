#include "memory/Refusals.h"

#include <unistd.h>

#include <csignal>
#include <cstring>
#include <ctime>

#include "support/ChildLife.h"
#include "support/ForkedChild.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the sanitizer gives it
extern "C" [[gnu::weak]] int __lsan_do_recoverable_leak_check();

namespace vqtorture {

namespace {

// Without memory to read the trace level the library traces, and keeps an object for that.
constexpr long kTraceObject = 1;

constexpr long kNever = 1'000'000'000;

// What threads leave to those after them is there after some turns; a block that is lost in each of the
// others shows in the sum.
constexpr int kFirstTurns = 4;
constexpr int kTurns = 8;

char g_szTrial[300];

// What was tried when the process was ended, which nothing may do.
void tellTrial(int signal) {
    (void)!::write(STDERR_FILENO, g_szTrial, std::strlen(g_szTrial));
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

// One trial, or one again and again: `liveBlocks` is then what the later turns have taken more.
Trial::Result runTurns(const Trial& trial, int turns, vqtest::Agent& witness, const Run& run,
                       Trial::Result& result) {
    long later = 0;
    for (int turn = 0; turn < turns; ++turn) {
        trial.run(run.directory(), witness, result);
        later += turn < kFirstTurns ? 0 : result.liveBlocks;
    }
    result.liveBlocks = turns > 1 ? later : result.liveBlocks;
    return result;
}

// In a child that goes with all that the library has made for good.
Trial::Result runInChild(const Trial& trial, int turns, vqtest::Agent& witness, const Run& run) {
    vqtest::Common<Trial::Result> result;
    const pid_t self = ::getpid();
    vqtest::ForkedChild child([&] {
        vqtest::endWithParent(self);
        try {
            runTurns(trial, turns, witness, run, *result);
            requireNoLeak();
            return 0;
        } catch (const std::exception& violation) {
            std::strncpy(result->violation, violation.what(), sizeof result->violation - 1);
            return 1;
        }
    });
    const int status = child.wait();
    require(status == 0,
            "the process ended with " + std::to_string(status) + ": " + result->violation);
    return *result;
}

Trial::Result tryOnce(const Trial& trial, vqtest::Agent& witness, const Run& run, int turns = 1) {
    const std::string text = trial.text() + "\n";
    std::strncpy(g_szTrial, text.c_str(), sizeof g_szTrial - 1);
    try {
        Trial::Result result;
        return trial.isInChild ? runInChild(trial, turns, witness, run)
                               : runTurns(trial, turns, witness, run, result);
    } catch (const std::exception& violation) {
        throw Violation(trial.text() + ": " + violation.what());
    }
}

// Where there are threads the C library keeps what ended ones had, for others (refuseAgain). The sanitizer
// takes blocks for itself, and looks for lost ones in its own way.
void requireNoMoreBlocks(const Trial& trial, long blocks, long usual) {
    const bool isCounted = !trial.tried.operation.hasThreads && !hasSanitizer();
    const long most = usual + (trial.isInChild ? kTraceObject : 0);
    require(!isCounted || blocks <= most,
            trial.text() + ": " + std::to_string(blocks - usual) + " blocks are lost");
}

// In one turn the witness changes the file at each second place, in the next one that has the same places
// at the others.
bool doesWitnessChange(const Places& places, long at) {
    const auto turn = static_cast<long>(places.turn) / places.step;
    return (at / places.step + turn) % 2 != 0;
}

void refuseEach(Trial trial, const Places& places, vqtest::Agent& witness, Run& run) {
    trial.at = kNever;
    tryOnce(trial, witness, run);  // what is made once is made
    const long usual = tryOnce(trial, witness, run).liveBlocks;
    Trial::Result result;
    result.refused = 1;
    const auto first = static_cast<long>(places.turn) % places.step;
    for (trial.at = first; result.refused != 0; trial.at += places.step) {
        trial.witnessChanges = doesWitnessChange(places, trial.at);
        result = tryOnce(trial, witness, run);
        requireNoMoreBlocks(trial, result.liveBlocks, usual);
        run.add("requests_refused", static_cast<double>(result.refused));
        run.add("trials");
    }
    run.highest("places", static_cast<double>(trial.at));
}

}  // namespace

bool hasSanitizer() {
    return __lsan_do_recoverable_leak_check != nullptr;
}

void requireNoLeak() {
    require(!__lsan_do_recoverable_leak_check || __lsan_do_recoverable_leak_check() == 0,
            "memory is lost");
}

void refuseEachOf(const Tried& tried, const Places& places, vqtest::Agent& witness, Run& run) {
    for (const bool isLasting : {false, true}) {
        refuseEach({tried, 0, isLasting, places.whose, places.isInChild, false}, places, witness,
                   run);
    }
}

bool refuseAgain(const Tried& tried, Whose whose, bool isLasting, vqtest::Agent& witness,
                 Run& run) {
    Trial trial{tried, kNever, isLasting, whose, true, run.below(2) != 0};
    const Trial::Result usual = tryOnce(trial, witness, run, kFirstTurns + kTurns);
    if (usual.requests == 0) {
        return false;
    }
    trial.at = static_cast<long>(run.below(static_cast<std::uint64_t>(usual.requests)));
    const Trial::Result result = tryOnce(trial, witness, run, kFirstTurns + kTurns);
    const long more = result.liveBlocks - usual.liveBlocks;
    require(hasSanitizer() || more < kTurns,
            trial.text() + ": again and again it takes " + std::to_string(more) + " blocks more");
    run.add("requests_refused", static_cast<double>(result.refused) * (kFirstTurns + kTurns));
    run.add("trials");
    run.highest("blocks_more", static_cast<double>(more));
    return true;
}

void prepareToRefuse() {
    ::tzset();
    try {
        throw Violation("");
    } catch (const Violation&) {
        // and nothing else
    }
    ::signal(SIGABRT, tellTrial);
    ::signal(SIGSEGV, tellTrial);
}

}  // namespace vqtorture
