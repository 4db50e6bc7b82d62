// Symbolic links in the place of a store's file.
#ifndef TOOLS_VQREG_STORE_STORELINK_H
#define TOOLS_VQREG_STORE_STORELINK_H

#include <string>

namespace vqreg {

// The file that a path means, by the rule of the library: a symbolic link is followed, link after
// link, when it is root's or the caller's; its target counts from its own directory. What it leads to
// need not exist. Throws eUnavailable for a link of somebody else and for links in a circle.
std::string fileBehindLinks(const std::string& path);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STORELINK_H
