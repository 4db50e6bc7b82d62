// Where a text stops being a configuration file.
#ifndef REGLIB_TEXT_TEXTFAULT_H
#define REGLIB_TEXT_TEXTFAULT_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace VQRegLib {

// Both count from 1. A piece of a line that is too long counts as a part of it.
struct CTextFault {
    std::size_t line = 0;
    std::size_t column = 0;
    const char* what = nullptr;  // "the key line has no \"]\""
};

// The first line at which a reader stops; nothing when it reads all of the text.
std::optional<CTextFault> firstFault(std::string_view text);

}  // namespace VQRegLib

#endif  // REGLIB_TEXT_TEXTFAULT_H
