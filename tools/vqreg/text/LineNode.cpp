#include "tools/vqreg/text/LineNode.h"

namespace vqreg {

Key LineNode::model() const {
    Key key;
    key.name = name;
    for (const auto& [foldedName, child] : children) {
        if (child.isKey) {
            key.keys.emplace_hint(key.keys.end(), foldedName, child.model());
        } else {
            key.values.emplace_hint(key.values.end(), foldedName, child.value);
        }
    }
    return key;
}

std::string LineNode::text() const {
    std::string text;
    print(text);
    return text;
}

void LineNode::print(std::string& text) const {
    for (const auto& entry : children) {
        if (!entry.second.isKey) {
            text += entry.second.line + "\n";
        }
    }
    for (const auto& entry : children) {
        if (entry.second.isKey) {
            if (entry.second.name != kTreeRootName) {
                text += entry.second.line + "\n";
            }
            entry.second.print(text);
        }
    }
}

}  // namespace vqreg
