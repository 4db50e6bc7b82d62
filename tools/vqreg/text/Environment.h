// The values of a key as variables of an environment: for units of the service manager, for shells and
// for programs that are started with them.
#ifndef TOOLS_VQREG_TEXT_ENVIRONMENT_H
#define TOOLS_VQREG_TEXT_ENVIRONMENT_H

#include <string>
#include <vector>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

struct Variable {
    std::string name;
    std::string text;
    std::string value;  // the name of the value that it comes from
};

// Letters, digits and "_", no digit first; or nothing at all.
bool isVariablePrefix(const std::string& prefix);

// The values of the key itself, in the order of the store. A name becomes upper case, and each
// character of it that no variable may have becomes "_"; the empty name becomes DEFAULT. A number is in
// decimal, binary data are hexadecimal digits, and a text is as it is. Throws eWrongKind when two values
// would be one variable, or one would be a variable that is not a program's own.
std::vector<Variable> variablesOf(const Key& key, const std::string& prefix);

// A line for each, NAME="text", that EnvironmentFile= of a unit and a POSIX shell read as the same text.
// Throws eWrongKind for a text that the first of them refuses.
std::string environmentText(const std::vector<Variable>& variables);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_ENVIRONMENT_H
