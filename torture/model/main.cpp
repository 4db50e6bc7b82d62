// The library beside a model of it, which is written from what the documents say: random sequences of
// everything that a program can do with a store, and of what others can do to its files.
//
// `alone` has one process, whose stores share nothing but the file where they are named differently;
// `together` has three.
//
// While a process has an update, begun by a call or by a CRegUpdate, it goes on with all its stores: with
// others of the same file, too, whose changes are refused. It opens and closes no session then, and neither
// registers nor removes a change handler: the header says that nobody may.
// Other processes look meanwhile, and open and close what is there; what would wait for the end of the
// update is left out.
//
// A notification changes nothing. Whom it reaches is looked at where that can be told for certain: the
// time of a file is moved until one handler of the store has been called, and of the others those that are
// registered with it have been called as well, and no others.
//
// Left out, because it has no one order: several threads of a process, how often a handler is called, and
// what it does itself when it is (ends.handlers, load.*). So are null texts, a lack of memory (memory.*),
// forks (ends.fork), and VQREG_SYNC=1 (power.*). What vqreg.h and VQRegStore.h make of these calls is not
// part of the sequences either.
#include <rapidcheck.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string_view>

#include "model/Comparison.h"
#include "model/StepGen.h"
#include "support/Torture.h"

namespace {

using vqtorture::Run;
using vqtorture::model::Agents;
using vqtorture::model::Step;

// The seed of a sequence; that of the first one is the run's, so each can be repeated alone.
std::uint64_t seedOf(const Run& run, std::uint64_t number) {
    return run.seed() + number * 0x9E3779B97F4A7C15u;
}

// A sequence that ends the process, or does not end, is named as well.
constexpr unsigned kLongestSeconds = 60;
char theName[200];

extern "C" void tellName(int signal) {
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, theName, std::strlen(theName));
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

void nameCurrent(const char* check, std::uint64_t seed) {
    std::snprintf(theName, sizeof theName,
                  "\nended in the sequence of: scripts/torture model.%s --seed %llu --count 1\n",
                  check, static_cast<unsigned long long>(seed));
}

void watchForEnds() {
    for (const int signal : {SIGALRM, SIGABRT, SIGSEGV, SIGBUS}) {
        ::signal(signal, tellName);
    }
}

struct Setting {
    const char* check;
    int processes;
};

rc::detail::TestResult checkOne(Run& run, const Setting& setting, std::uint64_t seed,
                                Agents& agents) {
    rc::detail::TestParams parameters;
    parameters.seed = seed;
    parameters.maxSuccess = 1;
    nameCurrent(setting.check, seed);
    return rc::detail::checkTestable(
        [&] {
            ::alarm(kLongestSeconds);
            const auto steps = *vqtorture::model::steps(setting.processes);
            const auto outcome = vqtorture::model::compare(steps, run.directory(), agents);
            run.add("operations", static_cast<double>(outcome.operations));
            if (!outcome.difference.empty()) {
                RC_FAIL(outcome.difference);
            }
        },
        rc::detail::TestMetadata(), parameters);
}

void checkAll(Run& run, const Setting& setting) {
    watchForEnds();
    Agents agents;
    for (int i = 1; i < setting.processes; ++i) {
        agents.push_back(vqtorture::model::startAgent(run.directory() + "/stores"));
    }
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        const std::uint64_t seed = seedOf(run, i);
        const auto result = checkOne(run, setting, seed, agents);
        if (!result.is<rc::detail::SuccessResult>()) {
            std::ostringstream text;
            rc::detail::printResultMessage(result, text);
            throw vqtorture::Violation(text.str() + "\nrepeat it with: scripts/torture model." +
                                       setting.check + " --seed " + std::to_string(seed) +
                                       " --count 1");
        }
        run.add("sequences");
    }
}

void alone(Run& run) {
    checkAll(run, {"alone", 1});
}

void together(Run& run) {
    checkAll(run, {"together", vqtorture::model::kProcesses});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string_view(argv[1]) == "agent") {
        return vqtorture::model::beAgent(argv[2]);
    }
    return vqtorture::runOneOf({{"alone", alone}, {"together", together}}, argc, argv);
}
