// What is wrong with options and arguments, in words of this command. The library that takes the
// command line apart has texts of its own, written for programmers.
#ifndef TOOLS_VQREG_USAGE_USAGEFAULT_H
#define TOOLS_VQREG_USAGE_USAGEFAULT_H

#include <string>

namespace vqreg {

// `text` is the one that the other library has for the fault.
std::string plainFault(const std::string& text);

// The command that does what a word of another program stands for, "ls" for "list"; empty without
// one.
std::string commandMeant(const std::string& word);

}  // namespace vqreg

#endif  // TOOLS_VQREG_USAGE_USAGEFAULT_H
