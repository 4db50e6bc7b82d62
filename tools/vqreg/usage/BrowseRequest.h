// What the command tells the program that shows a store on the screen.
#ifndef TOOLS_VQREG_USAGE_BROWSEREQUEST_H
#define TOOLS_VQREG_USAGE_BROWSEREQUEST_H

#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/store/StoreFile.h"

namespace vqreg {

// That program has the screen's library, which the command shall not need. It is started by the
// command only, which has read the command line.
struct BrowseRequest {
    StoreOptions store;
    bool isColored = false;
    std::string key = "/";  // to begin with

    std::vector<std::string> arguments() const;
    // None for what no command has written.
    static std::optional<BrowseRequest> of(const std::vector<std::string>& arguments);
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_USAGE_BROWSEREQUEST_H
