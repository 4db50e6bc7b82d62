// What keeps exceptions out of programs in C.
#ifndef REGLIB_C_GUARDED_H
#define REGLIB_C_GUARDED_H

#include <exception>

#include "VQRegLib.h"
#include "vqreg.h"

namespace VQRegLib {

// Runs a call; whatever it throws comes down to a shortage of memory. A cancellation passes through: it is
// no exception, and the thread ends with it.
template <typename Call>
[[nodiscard]] int guardedForC(Call&& call) {
    try {
        return call();
    } catch (const std::exception&) {
        return VQREG_E_FAIL;
    } catch (const VQException&) {
        return VQREG_E_FAIL;
    }
}

// The code of an operation that had to write: a directory that has gone is "not found" to the session, which
// means a value to who reads the list of codes.
[[nodiscard]] inline int ofChange(int result) {
    return result == VQREG_E_NOT_FOUND ? VQREG_E_FILE_OPEN : result;
}

}  // namespace VQRegLib

#endif  // REGLIB_C_GUARDED_H
