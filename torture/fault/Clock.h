// The time by which the library chooses its log file.
#ifndef VQTORTURE_FAULT_CLOCK_H
#define VQTORTURE_FAULT_CLOCK_H

namespace vqtorture {

/// For this process it is tomorrow.
void passMidnight();

}  // namespace vqtorture

#endif  // VQTORTURE_FAULT_CLOCK_H
