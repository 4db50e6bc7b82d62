#include "RegLib/session/SessionLock.h"

#include "portable/NoCancellation.h"
#include "portable/Portable.h"

namespace VQRegLib {

namespace {

constexpr int kEnteringNaps = 200;
constexpr unsigned long kEnteringNapMilliseconds = 1;

}  // namespace

bool enterDuringUpdates(CRegLibImpl& store, int location) NO_THREAD_SAFETY_ANALYSIS {
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

}  // namespace VQRegLib
