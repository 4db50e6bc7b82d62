// The text of a configuration file, read as the library reads it, but with every fault found.
#ifndef TOOLS_VQREG_TEXT_CONFIGTEXT_H
#define TOOLS_VQREG_TEXT_CONFIGTEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

struct Finding {
    std::size_t line = 0;    // from 1
    std::size_t column = 0;  // from 1, in bytes
    bool isError = true;  // the library refuses the file; otherwise it reads something unexpected
    std::string what;     // what is wrong
    std::string mend;     // how to mend it
    enum class eKind {
        eOther,
        eMissingParent,  // means nothing in a text that is put into a store
        eTruncated       // the library reads less than the line has
    } kind = eKind::eOther;
};

// "FILE:LINE:COL: error: what is wrong; how to mend it" (or "warning:").
std::string format(const std::string& file, const Finding& finding);

struct ConfigText {
    Key top;  // the invisible key above the top-level keys, as far as the text could be read
    std::vector<Finding> findings;
    Key rescued = {};                         // of a text with errors: all that can be read at all
    std::vector<std::size_t> lostLines = {};  // and the lines that cannot
    bool isReadable() const;                  // no finding is an error
    const Key& all() const { return isReadable() ? top : rescued; }
};

ConfigText parseConfigText(std::string_view text);

// The line that the library writes for a value.
std::string lineOf(const Value& value);

// The text that the library writes for the keys below `top`.
std::string composeConfigText(const Key& top);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_CONFIGTEXT_H
