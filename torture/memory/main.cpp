// Every request for memory is refused once, and with all after it, whoever makes it.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "memory/Refusals.h"
#include "support/Sequence.h"
#include "support/TraceLog.h"

namespace vqtorture {

namespace {

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

/// What each check begins with.
struct Ready {
    Ready() : quiet(0, vqtest::TraceLog::Directory::eLeaveMissing), witness(VQREG_AGENT_PATH) {
        prepareToRefuse();
    }

    const vqtest::TraceLog quiet;
    vqtest::Agent witness;
};

void refuseInAll(const std::vector<Tried>& all, Places places, vqtest::Agent& witness, Run& run) {
    for (places.turn = run.seed(); places.turn < run.seed() + run.count(); ++places.turn) {
        for (const Tried& tried : all) {
            refuseEachOf(tried, places, witness, run);
            if (!places.isInChild) {
                requireNoLeak();
            }
        }
    }
}

// Whose requests may be refused where there are threads.
std::vector<Whose> everyWhose() {
    std::vector<Whose> all = {Whose::eCallers};
    if (!hasSanitizer()) {
        all.push_back(Whose::eEverybodys);
        all.push_back(Whose::eOthers);
    }
    return all;
}

std::vector<Tried> withThreads() {
    std::vector<Tried> all = ofSessions(watchingOperations());
    for (const Tried& each : ofWatches()) {
        all.push_back(each);
    }
    return all;
}

// Every operation in one process. Count: how many rounds; a round takes each fourth request.
void refuseInOperations(Run& run) {
    Ready ready;
    std::vector<Operation> all = changingOperations();
    for (const Operation& each : lookingOperations()) {
        all.push_back(each);
    }
    const Silence silence;
    refuseInAll(ofSessions(all), {.step = 4}, ready.witness, run);
}

// Every call of vqreg.h. Count: rounds, of each sixteenth request.
void refuseInC(Run& run) {
    Ready ready;
    refuseInAll(ofC(), {.step = 16}, ready.witness, run);
}

// Every call of VQRegStore.h, in both forms. Count: rounds, of each sixteenth request.
void refuseInStores(Run& run) {
    Ready ready;
    refuseInAll(ofStores(), {.step = 16}, ready.witness, run);
}

// What a process does first. Count: rounds, of each fourth request.
void refuseAtFirst(Run& run) {
    Ready ready;
    std::vector<Tried> openings;
    for (const auto& list : {ofSessions(changingOperations()), ofC(), ofStores()}) {
        for (const Tried& each : list) {
            if (each.operation.use != SessionUse::eUses) {
                openings.push_back(each);
                openings.back().operation.mayThrow = true;
            }
        }
    }
    refuseInAll(openings, {.isInChild = true, .step = 4}, ready.witness, run);
}

// Registration, notification, watches, and their threads. Count: rounds, of each thirty-second request.
void refuseWithThreads(Run& run) {
    Ready ready;
    for (const Whose whose : everyWhose()) {
        refuseInAll(withThreads(), {whose, true, 32}, ready.witness, run);
    }
}

// The same again and again. Count: operations.
void refuseAgainWithThreads(Run& run) {
    Ready ready;
    const std::vector<Tried> all = withThreads();
    const std::vector<Whose> every = everyWhose();
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        const Tried& tried = all[(run.seed() + i) % all.size()];
        const bool isLasting = run.below(2) != 0;
        const std::size_t first = run.below(every.size());
        bool isRefused = false;  // some make no requests at all
        for (std::size_t k = 0; k < every.size() && !isRefused; ++k) {
            const Whose whose = every[(first + k) % every.size()];
            isRefused = refuseAgain(tried, whose, isLasting, ready.witness, run);
        }
    }
}

// Operations in any order, with requests refused at random. Count: sequences.
void refuseInSequences(Run& run) {
    constexpr int kOperations = 40;
    Ready ready;
    long refused = 0;
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        Sequence sequence(run.directory(), ready.witness);
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
                                {"c", vqtorture::refuseInC},
                                {"store", vqtorture::refuseInStores},
                                {"first", vqtorture::refuseAtFirst},
                                {"threads", vqtorture::refuseWithThreads},
                                {"again", vqtorture::refuseAgainWithThreads},
                                {"sequences", vqtorture::refuseInSequences}},
                               argc, argv);
}
