// Every request for memory is refused once, and with all after it, whoever makes it.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "memory/Trial.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/Sequence.h"
#include "support/Torture.h"
#include "support/TraceLog.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the sanitizer gives it
extern "C" [[gnu::weak]] int __lsan_do_recoverable_leak_check();

namespace vqtorture {

namespace {

// Without memory to read the trace level the library traces, and keeps an object for that.
constexpr long kTraceObject = 1;

constexpr long kNever = 1'000'000'000;

char g_szTrial[300];

// What was tried when the process was ended, which nothing may do.
void tellTrial(int signal) {
    (void)!::write(STDERR_FILENO, g_szTrial, std::strlen(g_szTrial));
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

void requireNoLeak() {
    require(!__lsan_do_recoverable_leak_check || __lsan_do_recoverable_leak_check() == 0,
            "memory is lost");
}

/// What is printed meanwhile goes nowhere.
class Silence {
public:
    Silence() : m_output(::dup(STDOUT_FILENO)) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    ~Silence() {
        std::fflush(stdout);
        ::dup2(m_output, STDOUT_FILENO);
        ::close(m_output);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    const int m_output;
};

Trial::Result runHere(const Trial& trial, vqtest::Agent& witness, const Run& run) {
    Trial::Result result;
    trial.run(run.directory(), witness, result);
    return result;
}

// In a child that goes with all that the library has made for good.
Trial::Result runInChild(const Trial& trial, vqtest::Agent& witness, const Run& run) {
    vqtest::Common<Trial::Result> result;
    const pid_t self = ::getpid();
    vqtest::ForkedChild child([&] {
        vqtest::endWithParent(self);
        try {
            trial.run(run.directory(), witness, *result);
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

Trial::Result tryOnce(const Trial& trial, vqtest::Agent& witness, const Run& run) {
    const std::string text = trial.text() + "\n";
    std::strncpy(g_szTrial, text.c_str(), sizeof g_szTrial - 1);
    try {
        return trial.isInChild ? runInChild(trial, witness, run) : runHere(trial, witness, run);
    } catch (const std::exception& violation) {
        throw Violation(trial.text() + ": " + violation.what());
    }
}

bool hasSanitizer() {
    return __lsan_do_recoverable_leak_check != nullptr;
}

// Where there are threads the C library keeps what ended ones had, for others. The sanitizer takes blocks
// for itself, and looks for lost ones in its own way.
void requireNoMoreBlocks(const Trial& trial, long blocks, long usual) {
    const bool isCounted = !trial.operation.hasThreads && !hasSanitizer();
    const long most = usual + (trial.isInChild ? kTraceObject : 0);
    require(!isCounted || blocks <= most,
            trial.text() + ": " + std::to_string(blocks - usual) + " blocks are lost");
}

// Refuses one request after the other, or each `step`th of them, until the operation makes no more.
void refuseEach(Trial trial, long first, long step, vqtest::Agent& witness, Run& run) {
    trial.at = kNever;
    tryOnce(trial, witness, run);  // what is made once is made
    const long usual = tryOnce(trial, witness, run).liveBlocks;
    Trial::Result result;
    result.refused = 1;
    for (trial.at = first; result.refused != 0; trial.at += step) {
        trial.witnessChanges = trial.at % 2 != 0;
        result = tryOnce(trial, witness, run);
        requireNoMoreBlocks(trial, result.liveBlocks, usual);
        run.add("requests_refused", static_cast<double>(result.refused));
        run.add("trials");
    }
    run.highest("places", static_cast<double>(trial.at));
}

void refuseEachOf(const Operation& operation, Whose whose, bool isInChild, long first, long step,
                  vqtest::Agent& witness, Run& run) {
    for (const bool isLasting : {false, true}) {
        refuseEach({operation, 0, isLasting, whose, isInChild, false}, first, step, witness, run);
    }
}

// What the first exception of a process costs, and the first look at its time zone, is none of the
// library's.
void prepare() {
    ::tzset();
    try {
        throw Violation("");
    } catch (const Violation&) {
        // and nothing else
    }
    ::signal(SIGABRT, tellTrial);
    ::signal(SIGSEGV, tellTrial);
}

// Every operation in one process. Count: how many rounds; a round takes each fourth request.
void refuseInOperations(Run& run) {
    constexpr long kStep = 4;
    prepare();
    const vqtest::TraceLog quiet(0, vqtest::TraceLog::Directory::eLeaveMissing);
    vqtest::Agent witness(VQREG_AGENT_PATH);
    std::vector<Operation> all = changingOperations();
    for (const Operation& each : lookingOperations()) {
        all.push_back(each);
    }
    const Silence silence;
    for (std::uint64_t turn = run.seed(); turn < run.seed() + run.count(); ++turn) {
        for (const Operation& operation : all) {
            refuseEachOf(operation, Whose::eEverybodys, false, static_cast<long>(turn % kStep),
                         kStep, witness, run);
            requireNoLeak();
        }
    }
}

// What a process does first. Count: rounds, of each fourth request.
void refuseAtFirst(Run& run) {
    constexpr long kStep = 4;
    prepare();
    const vqtest::TraceLog quiet(0, vqtest::TraceLog::Directory::eLeaveMissing);
    vqtest::Agent witness(VQREG_AGENT_PATH);
    for (std::uint64_t turn = run.seed(); turn < run.seed() + run.count(); ++turn) {
        for (const Operation& operation : changingOperations()) {
            if (operation.use != SessionUse::eUses) {
                refuseEachOf(operation, Whose::eEverybodys, true, static_cast<long>(turn % kStep),
                             kStep, witness, run);
            }
        }
    }
}

// Registration, notification and their threads. Count: rounds, of each thirty-second request.
void refuseWithThreads(Run& run) {
    constexpr long kStep = 32;
    prepare();
    const vqtest::TraceLog quiet(0, vqtest::TraceLog::Directory::eLeaveMissing);
    vqtest::Agent witness(VQREG_AGENT_PATH);
    for (std::uint64_t turn = run.seed(); turn < run.seed() + run.count(); ++turn) {
        for (const Operation& operation : watchingOperations()) {
            for (const Whose whose : {Whose::eCallers, Whose::eEverybodys, Whose::eOthers}) {
                if (hasSanitizer() && whose != Whose::eCallers) {
                    break;  // it takes memory in each new thread, and ends the process without
                }
                refuseEachOf(operation, whose, true, static_cast<long>(turn % kStep), kStep,
                             witness, run);
            }
        }
    }
}

// Operations in any order, with requests refused at random. Count: sequences.
void refuseInSequences(Run& run) {
    constexpr int kOperations = 40;
    prepare();
    const vqtest::TraceLog quiet(0, vqtest::TraceLog::Directory::eLeaveMissing);
    vqtest::Agent witness(VQREG_AGENT_PATH);
    long refused = 0;
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        Sequence sequence(run.directory(), witness);
        const auto oneIn = static_cast<std::uint32_t>(2 + run.below(60));
        const std::uint64_t seed = run.random()();
        for (int step = 0; step < kOperations; ++step) {
            sequence.step(
                run, [&] { refuseAtRandom(oneIn, step == 0 ? seed : 0); },
                [&] { refused += refuseAtRandom(0, 0); });
        }
        sequence.judge(false);
    }
    run.add("requests_refused", static_cast<double>(refused));
    requireNoLeak();
}

}  // namespace

}  // namespace vqtorture

int main(int argc, char** argv) {
    return vqtorture::runOneOf({{"operations", vqtorture::refuseInOperations},
                                {"first", vqtorture::refuseAtFirst},
                                {"threads", vqtorture::refuseWithThreads},
                                {"sequences", vqtorture::refuseInSequences}},
                               argc, argv);
}
