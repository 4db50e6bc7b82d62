#include "model/Tree.h"

#include <algorithm>

namespace vqtorture::model {

namespace {

constexpr const char* kTopName = "<root>";
constexpr std::size_t kDeepestIndent = 63;

void writeNode(const Node& node, std::string& text) {
    if (node.name != kTopName) {
        text += node.fullName + "\n";
    }
    for (const auto& [name, child] : node.children) {
        if (!child->isKey) {
            text += child->line + "\n";
        }
    }
    for (const auto& [name, child] : node.children) {
        if (child->isKey) {
            writeNode(*child, text);
        }
    }
}

void dumpNode(const Node& node, std::size_t depth, std::string& text) {
    text += "  " + std::string(std::min(2 * depth, kDeepestIndent), ' ') + "name " + node.name +
            ", iskey " + (node.isKey ? "1" : "0") + ", fullname " + node.fullName + ", value " +
            (node.isKey ? "<key>" : node.line) + "\n";
    if (node.isKey) {
        for (const auto& [name, child] : node.children) {
            dumpNode(*child, depth + 1, text);
        }
    }
}

}  // namespace

Node* Node::child(const std::string& childName) const {
    const auto found = children.find(folded(childName));
    return found == children.end() ? nullptr : found->second;
}

Tree::Tree() : m_top(&m_nodes.emplace_back()) {
    m_top->name = kTopName;
}

std::string Tree::fullNameFor(const Node& parent, const std::string& name) {
    std::vector<std::string> names;
    if (name != kTopName) {
        names.push_back(name);
    }
    for (const Node* above = &parent; above != nullptr; above = above->parent) {
        if (above->name != kTopName) {
            names.push_back(above->name);
        }
    }
    std::string fullName = "[";
    for (auto part = names.rbegin(); part != names.rend(); ++part) {
        fullName += (part == names.rbegin() ? "" : "/") + *part;
    }
    return fullName + "]";
}

Node& Tree::add(Node& parent, const std::string& name, bool isKey) {
    Node& node = m_nodes.emplace_back();
    node.isKey = isKey;
    node.name = name;
    node.parent = &parent;
    parent.children[folded(name)] = &node;
    return node;
}

Node& Tree::addKey(Node& parent, const std::string& name, const std::string& fullName) {
    Node& node = add(parent, name, true);
    node.fullName = fullName;
    return node;
}

Node& Tree::addValue(Node& parent, const std::string& name) {
    return add(parent, name, false);
}

void Tree::remove(Node& node) {
    node.parent->children.erase(folded(node.name));
}

int Tree::merge(const std::string& text) {
    Node* current = nullptr;
    for (const std::string& line : linesOf(text)) {
        int code = VQRegLib::REGLIB_OK;
        if (isKeyLine(line)) {
            code = mergeKey(current, line);
        } else if (current == nullptr) {
            code = VQRegLib::REGLIB_E_BAD_FORMAT;
        } else {
            code = mergeValue(*current, line);
        }
        if (code < 0) {
            return code;
        }
    }
    return VQRegLib::REGLIB_OK;
}

// A value on the way is walked through like a key: what follows hangs below it, where nothing looks.
int Tree::mergeKey(Node*& current, const std::string& line) {
    const auto names = namesOfKeyLine(line);
    if (!names) {
        return VQRegLib::REGLIB_E_BAD_FORMAT;
    }
    Node* node = m_top;
    for (const std::string& name : *names) {
        Node* child = node->child(name);
        node = child != nullptr ? child : &addKey(*node, name, line);
    }
    current = names->empty() ? nullptr : node;
    return VQRegLib::REGLIB_OK;
}

int Tree::mergeValue(Node& current, const std::string& line) {
    const auto value = parseValueLine(line);
    if (!value) {
        return VQRegLib::REGLIB_E_BAD_FORMAT;
    }
    Node& node = addValue(current, value->name);
    node.line = line;
    node.type = value->type;
    return VQRegLib::REGLIB_OK;
}

std::string Tree::text() const {
    std::string text;
    writeNode(*m_top, text);
    return text;
}

std::string Tree::dump() const {
    std::string text = "--dump keys/values\n";
    dumpNode(*m_top, 0, text);
    return text;
}

}  // namespace vqtorture::model
