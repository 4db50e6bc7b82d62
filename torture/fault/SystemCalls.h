// How each system call can fail.
#ifndef VQTORTURE_FAULT_SYSTEM_CALLS_H
#define VQTORTURE_FAULT_SYSTEM_CALLS_H

#include <cstdint>
#include <vector>

#include "fault/Plan.h"

namespace vqtorture {

struct SystemCall {
    const char* name;
    std::vector<Fault> faults;
};

/// What is known of a call: how it can fail, or why its failures are left out. A call of which neither is
/// known has been judged by nobody.
struct KnownCall {
    const SystemCall* call = nullptr;
    const char* leftOutBecause = nullptr;

    bool isKnown() const { return call || leftOutBecause; }
};

KnownCall knownCall(std::uint64_t number, const std::uint64_t (&arguments)[6]);

}  // namespace vqtorture

#endif  // VQTORTURE_FAULT_SYSTEM_CALLS_H
