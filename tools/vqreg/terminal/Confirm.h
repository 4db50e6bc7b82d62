// Asks before something is lost.
#ifndef TOOLS_VQREG_TERMINAL_CONFIRM_H
#define TOOLS_VQREG_TERMINAL_CONFIRM_H

#include <string>

namespace vqreg {

// Asks on standard error when standard input is a terminal; true without one. Throws Interrupted.
bool confirm(const std::string& question);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TERMINAL_CONFIRM_H
