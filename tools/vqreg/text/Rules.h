// What the file format can give back. One broken rule stops every process on the machine, so nothing
// is written that breaks one.
#ifndef TOOLS_VQREG_TEXT_RULES_H
#define TOOLS_VQREG_TEXT_RULES_H

#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

// Each returns nothing when all is well, else a sentence that names the rule and the input.
std::optional<std::string> brokenRuleOfKeyName(const std::string& name);
std::optional<std::string> brokenRuleOfValueName(const std::string& name);
std::optional<std::string> brokenRuleOfValue(const Value& value);  // its name, text and line length
std::optional<std::string> brokenRuleOfKeyPath(const std::string& rootName, const Path& path);

// Of a whole tree below a key: also a sub key and a value of one name.
std::vector<std::string> brokenRulesOfTree(const std::string& rootName, const Path& path,
                                           const Key& key);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_RULES_H
