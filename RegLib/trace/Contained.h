// Keeps exceptions inside the library's threads.
#ifndef REGLIB_TRACE_CONTAINED_H
#define REGLIB_TRACE_CONTAINED_H

#include <exception>

#include "RegLib/trace/Trace.h"
#include "VQRegLib.h"

namespace VQRegLib {

// Runs a piece of a library thread. An exception that leaves the piece becomes an error line: on such
// a thread nobody could catch it, and it would end the program. False when there was one. What
// passes is the unwinding of a thread that is cancelled, or that ends itself.
template <typename Piece>
bool contained(const char* where, const void* object, Piece&& piece) {
    try {
        piece();
        return true;
    } catch (const VQException& exception) {
        REGLIB_TRACE(eTraceAlways, "(Error) %s (0x%08X), exception 0x%08X, %s\n", where,
                     traceId(object), static_cast<unsigned>(exception.m_lCode), exception.m_szText);
    } catch (const std::exception& exception) {
        REGLIB_TRACE(eTraceAlways, "(Error) %s (0x%08X), exception %s\n", where, traceId(object),
                     exception.what());
    } catch (...) {
        if (!std::current_exception()) {
            throw;  // the unwinding, which is nothing that can be held
        }
        REGLIB_TRACE(eTraceAlways, "(Error) %s (0x%08X), exception of unknown kind\n", where,
                     traceId(object));
    }
    return false;
}

}  // namespace VQRegLib

#endif  // REGLIB_TRACE_CONTAINED_H
