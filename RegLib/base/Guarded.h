// Turns a shortage of memory into its result code.
#ifndef REGLIB_BASE_GUARDED_H
#define REGLIB_BASE_GUARDED_H

#include <new>
#include <stdexcept>

#include "VQRegLib.h"

namespace VQRegLib {

// Runs a piece of an operation. Whatever it locked must be held by guards of its own; a VQException
// passes through. A part of whoever calls it: the piece is nobody else's.
template <typename Piece>
[[nodiscard, gnu::always_inline]] inline int guarded(Piece&& piece) {
    try {
        return piece();
    } catch (const std::bad_alloc&) {
        return REGLIB_E_FAIL;
    } catch (const std::length_error&) {
        return REGLIB_E_FAIL;
    }
}

}  // namespace VQRegLib

#endif  // REGLIB_BASE_GUARDED_H
