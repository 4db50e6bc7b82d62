// The checks of this folder.
#ifndef VQTORTURE_KILL_CHECKS_H
#define VQTORTURE_KILL_CHECKS_H

#include <string>

#include "support/Torture.h"

namespace vqtorture {

void killAtRandom(Run& run);
// Of these a run has a part of all places, by its seed, and goes through it as often as its count says.
void killAtCalls(Run& run);
void killAgain(Run& run);
void killInMending(Run& run);
void stopAtCalls(Run& run);

/// What is thrown in `action` says where it was.
template <typename Action>
void told(const std::string& where, Action action) {
    try {
        action();
    } catch (const CannotRun&) {
        throw;
    } catch (const std::exception& violation) {
        throw Violation(where + ": " + violation.what());
    }
}

}  // namespace vqtorture

#endif  // VQTORTURE_KILL_CHECKS_H
