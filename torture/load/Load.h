// Many processes and threads on one store, for long.
#ifndef VQTORTURE_LOAD_H
#define VQTORTURE_LOAD_H

#include "support/Torture.h"

namespace vqtorture {

void readback(Run& run);
void linear(Run& run);
void twoWriters(Run& run);
void watched(Run& run);
void soak(Run& run);

}  // namespace vqtorture

#endif  // VQTORTURE_LOAD_H
