// Deletions that other programs undo.
#ifndef TOOLS_VQREG_STORE_RETURNING_H
#define TOOLS_VQREG_STORE_RETURNING_H

#include <string>
#include <vector>

#include "tools/vqreg/store/OpenIn.h"
#include "tools/vqreg/text/Difference.h"

namespace vqreg {

bool deletesAny(const std::vector<Change>& changes);

// Says which processes have the store open, a line for each.
void warnOfReturn(const Openers& openers);

// What the store's file has of what the changes deleted. Looks again with each change of the file,
// until there is something or the time is up. `above` is put before the paths of the changes.
std::vector<Change> waitForReturn(const std::string& file, const Path& above,
                                  const std::vector<Change>& changes, double seconds);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_RETURNING_H
