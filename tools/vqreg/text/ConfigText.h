// The text of a configuration file, read as the library reads it, but with every fault found.
#ifndef TOOLS_VQREG_TEXT_CONFIGTEXT_H
#define TOOLS_VQREG_TEXT_CONFIGTEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/vqreg/text/Findings.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

struct ConfigText {
    Key top;  // the invisible key above the top-level keys, as far as the text could be read
    std::vector<Finding> findings;
    Key rescued = {};                         // of a text with errors: all that can be read at all
    std::vector<std::size_t> lostLines = {};  // and the lines that cannot
    const Finding* firstError() const;        // null when there is none
    bool isReadable() const { return !firstError(); }
    const Key& all() const { return isReadable() ? top : rescued; }
};

ConfigText parseConfigText(std::string_view text);

// The line that the library writes for a value.
std::string lineOf(const Value& value);

// The text that the library writes for the keys below `top`.
std::string composeConfigText(const Key& top);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_CONFIGTEXT_H
