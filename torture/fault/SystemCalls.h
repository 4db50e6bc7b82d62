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

/// How a call can fail; null for one that cannot, or whose failures are left out.
const SystemCall* plausibleFaults(std::uint64_t number, const std::uint64_t (&arguments)[6]);

}  // namespace vqtorture

#endif  // VQTORTURE_FAULT_SYSTEM_CALLS_H
