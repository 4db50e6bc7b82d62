// Names and data in messages and listings.
#ifndef TOOLS_VQREG_TEXT_SHOWN_H
#define TOOLS_VQREG_TEXT_SHOWN_H

#include <string>
#include <string_view>

namespace vqreg {

// Control characters as \xNN: for names and data in the middle of a line.
std::string printable(std::string_view text);

// A text in double quotes for a message: on one line, printable, and not endless.
std::string shown(std::string_view text);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_SHOWN_H
