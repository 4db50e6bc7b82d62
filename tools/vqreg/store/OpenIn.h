// Which programs have a store open. Each of them keeps a store's values in its memory, so that what
// is deleted by somebody else comes back with its next change.
#ifndef TOOLS_VQREG_STORE_OPENIN_H
#define TOOLS_VQREG_STORE_OPENIN_H

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace vqreg {

struct OpenIn {
    pid_t pid = 0;
    std::string program;

    std::string text() const;  // "27846 (heaterd)"
};

std::string listOf(const std::vector<OpenIn>& processes);  // with commas between

struct Openers {
    std::vector<OpenIn> processes;
    // How often the store is in memory besides. A process may have it there several times.
    std::size_t hidden = 0;

    std::string hiddenText(const std::string& what) const;  // "up to 2 WHAT"; "" for none
    std::string text() const;                               // all of them on a line
};

// The processes, except this one, that have the store of the file in memory, by their numbers.
// The system lets only root look into processes of other users.
Openers processesWith(const std::string& file);

// Those that use the file through an older version of the library, which has other objects: what
// they change and what others change gets lost.
std::vector<OpenIn> olderProcessesWith(const std::string& file);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_OPENIN_H
