#include "RegLib/session/SessionLock.h"

#include "portable/NoCancellation.h"
#include "portable/Portable.h"

namespace VQRegLib {

namespace {

constexpr int kEnteringNaps = 200;
constexpr unsigned long kEnteringNapMilliseconds = 1;

}  // namespace

bool enterDuringUpdates(CRegLibImpl& store, int location) NO_THREAD_SAFETY_ANALYSIS {
    // Whoever need not wait does not: as the thread of the update itself.
    if (store.m_critSec.tryEnter(location)) {
        return true;
    }
    if (!store.isUpdatedElsewhere()) {
        store.m_critSec.enter(location);
        return true;
    }
    const CNoCancellation noCancellation;
    for (int nap = 0; nap < kEnteringNaps; ++nap) {
        if (store.m_critSec.tryEnter(location)) {
            return true;
        }
        CPortable::Sleep(kEnteringNapMilliseconds);
    }
    return false;
}

// Each level has entered the lock once, which a thread that is not inside cannot leave.
void dropUpdates(CRegLibImpl& store, std::uint32_t number, int levels) NO_THREAD_SAFETY_ANALYSIS {
    const CNoCancellation noCancellation;
    if (!store.m_critSec.tryEnter(__LINE__)) {
        return;
    }
    for (; levels > 0 && number != 0 && store.updateNumber() == number; --levels) {
        store.dropUpdate();
        store.m_critSec.leave(__LINE__);
    }
    store.m_critSec.leave(__LINE__);
}

}  // namespace VQRegLib
