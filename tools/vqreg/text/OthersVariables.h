// Variables that are not a program's own.
#ifndef TOOLS_VQREG_TEXT_OTHERSVARIABLES_H
#define TOOLS_VQREG_TEXT_OTHERSVARIABLES_H

#include <optional>
#include <string_view>

namespace vqreg {

// What the variable is to others, as the end of a sentence about it; none for one of a program's own.
std::optional<std::string_view> othersOf(std::string_view variable);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_OTHERSVARIABLES_H
