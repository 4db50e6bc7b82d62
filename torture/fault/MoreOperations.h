// Operations whose system calls no other one makes.
#ifndef VQTORTURE_FAULT_MORE_OPERATIONS_H
#define VQTORTURE_FAULT_MORE_OPERATIONS_H

#include <vector>

#include "support/Operations.h"

namespace vqtorture {

/// Watches of the C interface, and what tells people why a store cannot be used.
std::vector<Operation> operationsOfC();

/// Where the path of the file has to be made out.
Operation openingByRelativePath();

/// A change after midnight, with the trace on: the log goes on in another file.
Operation changeOfTomorrow();

}  // namespace vqtorture

#endif  // VQTORTURE_FAULT_MORE_OPERATIONS_H
