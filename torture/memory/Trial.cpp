#include "memory/Trial.h"

#include <optional>

#include "support/Torture.h"

namespace vqtorture {

namespace {

const char* nameOf(Whose whose) {
    return whose == Whose::eEverybodys ? "anybody"
           : whose == Whose::eCallers  ? "the caller"
                                       : "a thread";
}

}  // namespace

std::string Trial::text() const {
    return tried.operation.name + ", request " + std::to_string(at) +
           (isLasting ? " and all after it" : "") + " of " + nameOf(whose) +
           (isInChild ? ", in a new process" : "");
}

int Trial::runShort(Subject& subject, Result& result) const {
    Shortage shortage(at, isLasting, whose);
    const int code = subject.act();
    if (tried.operation.hasThreads) {
        settle();
    }
    result.refused = shortage.end();
    result.requests = shortage.granted();
    return code;
}

void Trial::runSubject(Ground& ground, Outcome& outcome, Result& result) const {
    const std::unique_ptr<Subject> subject = tried.subject(tried.operation, ground.path());
    subject->prepare();
    outcome.code = runShort(*subject, result);
    {
        const Plenty plenty;
        ground.judge(outcome, witnessChanges);
    }
    subject->comeOn(outcome);
}

void Trial::run(const std::string& below, vqtest::Agent& witness, Result& result) const {
    std::optional<Ground> ground;
    std::size_t descriptors = 0;
    {
        const Plenty plenty;
        ground.emplace(below, tried.operation, witness);
        descriptors = openDescriptors();
    }
    Outcome outcome;
    const long before = liveBlocks();
    runSubject(*ground, outcome, result);
    result.liveBlocks = liveBlocks() - before;
    const Plenty plenty;
    ground->judgeEnd(outcome);
    // A process that has a handler keeps its semaphore's file open.
    require(openDescriptors() <= descriptors + (tried.operation.hasThreads ? 1 : 0),
            "a descriptor is left open");
    ground.reset();
}

}  // namespace vqtorture
