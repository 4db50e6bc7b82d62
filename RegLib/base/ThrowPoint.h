// The places that throw, by name. Their line numbers are part of the text that a catcher sees and
// of ten years of bug reports, so they stay as they are when the source moves.
#ifndef REGLIB_BASE_THROWPOINT_H
#define REGLIB_BASE_THROWPOINT_H

#include "VQRegLib.h"

namespace VQRegLib {

enum class eThrowPoint : long {
    eSetFullName = 1972,
    eSetKeyName = 1978,
    eClearFullName = 1991,
    eClearKeyName = 1997,
    eNewDirectory = 1826,
    eNewNotifierSemaphore = 2372,
    eNewWakeEvent = 714,
    eCopyDefaultFileName = 3235,
    eCopyFileName = 3243,
    eNewRootNode = 3249,
    eNewMutex = 3253,
    eNewSharedMemory = 3264,
    eNewParentHandle = 3282,
    eNewRootKey = 3294,
    eCreateRootKey = 3311
};

[[noreturn]] inline void throwAt(eThrowPoint point, int code = REGLIB_E_FAIL) {
    throw VQException(code, "RegLib", static_cast<long>(point));
}

}  // namespace VQRegLib

#endif  // REGLIB_BASE_THROWPOINT_H
