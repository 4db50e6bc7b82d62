// Lists that several commands print.
#ifndef TOOLS_VQREG_TERMINAL_LISTING_H
#define TOOLS_VQREG_TERMINAL_LISTING_H

#include <string>
#include <vector>

#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"

namespace vqreg {

// Each finding as a line on standard error.
void printFindings(const std::string& file, const std::vector<Finding>& findings);

// On standard output, a line for each; `above` is put before the paths of the text lines. `root` is
// for JSON lines of changes whose paths begin at the top of a file.
void printChanges(const std::vector<Change>& changes, const Path& above, bool json,
                  const Path& root = {});

}  // namespace vqreg

#endif  // TOOLS_VQREG_TERMINAL_LISTING_H
