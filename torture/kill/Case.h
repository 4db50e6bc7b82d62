// Who dies, at what, and beside whom.
#ifndef VQTORTURE_KILL_CASE_H
#define VQTORTURE_KILL_CASE_H

#include <string>
#include <vector>

#include "kill/Deeds.h"
#include "support/Torture.h"

namespace vqtorture {

/// What there is when a process begins its deed.
enum class Scene {
    eWitnessed,  ///< the store, and others have it open
    eAlone,      ///< the store, and nobody else uses it
    eNothing     ///< no file and no objects: it is for openings
};

struct Case {
    Deed deed;
    Scene scene;
    /// Who dies is another user than the others, who does not own the file and may only read it: the
    /// kernel may refuse him a link of it, so that he exchanges names.
    bool isOfAnotherUser = false;

    std::string words() const;
};

/// All that make sense here: only root has other users' stores, and only where others may come.
std::vector<Case> allCases(const Run& run);

/// In the process that is to die.
void becomeUserOf(const Case& what);

}  // namespace vqtorture

#endif  // VQTORTURE_KILL_CASE_H
