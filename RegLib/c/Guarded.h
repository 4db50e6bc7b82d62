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

}  // namespace VQRegLib

#endif  // REGLIB_C_GUARDED_H
