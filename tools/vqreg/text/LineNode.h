// A key or a value of a configuration file with its line.
#ifndef TOOLS_VQREG_TEXT_LINENODE_H
#define TOOLS_VQREG_TEXT_LINENODE_H

#include <map>
#include <string>
#include <string_view>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

// The name of the library's own invisible key; a key of that name gets no line when it is written.
constexpr std::string_view kTreeRootName = "<root>";

// Values can have children here, as they can in the library.
struct LineNode {
    bool isKey = true;
    std::string name = {};
    std::string line = {};   // as it was read
    std::size_t number = 0;  // of the line
    Value value = {};
    std::map<std::string, LineNode> children = {};

    Key model() const;  // what can be found of the tree below
    std::string text()
        const;  // the lines of all that is below, in the order in which they are written

private:
    void print(std::string& text) const;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_LINENODE_H
