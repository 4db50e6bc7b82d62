// Keys and values as a process has them in memory.
#ifndef VQTORTURE_MODEL_TREE_H
#define VQTORTURE_MODEL_TREE_H

#include <deque>
#include <map>
#include <string>

#include "model/Lines.h"

namespace vqtorture::model {

struct Node {
    bool isKey = true;
    std::string name = {};      ///< as it was created
    std::string fullName = {};  ///< of a key: its line of the file
    std::string line = {};      ///< of a value: its line of the file
    DataType type = VQRegLib::CRegLib::eNone;
    Node* parent = nullptr;
    std::map<std::string, Node*> children = {};  ///< by their folded names
    bool isDeleted = false;                      ///< by VQRegDeleteKey; handles on it are void

    /// The child of a name, or null.
    Node* child(const std::string& childName) const;
};

class Tree {
public:
    Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    /// The invisible key above all others.
    Node& top() { return *m_top; }

    /// The header that a new key of the name gets: the names above it, but for those called "<root>".
    static std::string fullNameFor(const Node& parent, const std::string& name);

    /// A new key or value. What had its name before is displaced: no path leads to it any more, but
    /// handles on a key that is displaced, and on the keys below it, go on working.
    Node& addKey(Node& parent, const std::string& name, const std::string& fullName);
    Node& addValue(Node& parent, const std::string& name);

    /// Takes a child out of its parent.
    static void remove(Node& node);

    /// Merges a text into the tree: what it has replaces what was there, the rest stays. The lines
    /// before a malformed one count.
    int merge(const std::string& text);

    /// The tree as a file, and as a dump.
    std::string text() const;
    std::string dump() const;

private:
    Node& add(Node& parent, const std::string& name, bool isKey);
    int mergeKey(Node*& current, const std::string& line);
    int mergeValue(Node& current, const std::string& line);

    // Nothing is freed before the tree is: displaced nodes may be in use.
    std::deque<Node> m_nodes;
    Node* m_top;
};

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_TREE_H
