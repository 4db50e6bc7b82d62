// What a tree should hold after anything, written down as simply as possible.
#ifndef VQTEST_TREE_PLAIN_TREE_H
#define VQTEST_TREE_PLAIN_TREE_H

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "RegLib/tree/Tree.h"

namespace vqtest {

struct PlainNode {
    bool isKey = false;
    std::string name;
    std::string line;
    int type = 0;
    PlainNode* parent = nullptr;
    std::map<std::string, PlainNode*> children;  // by their names in lower case
};

/// What became of a merge.
struct PlainOutcome {
    int code = 0;
    bool isEmpty = true;
};

std::string inLowerCase(std::string_view name);

class PlainTree {
public:
    PlainTree();

    PlainNode& root() { return m_nodes.front(); }
    PlainNode* find(PlainNode& parent, std::string_view name) const;
    PlainNode& addKey(PlainNode& parent, std::string_view name);
    PlainNode& addValue(PlainNode& parent, std::string_view name, int type, std::string_view line);
    void remove(PlainNode& node);

    /// Takes out what the other one lacks, or has as the other kind, and spells keys as it does.
    void reduceTo(PlainTree& other) { reduce(root(), other, other.root()); }

    /// As a reader with lines of at most 2048 bytes goes through a file.
    PlainOutcome merge(std::string_view text);

    std::string text() {
        std::string text;
        appendText(root(), text);
        return text;
    }

    /// A line for each node, those below values left out.
    static std::string dump(const PlainNode& top) {
        std::string dump;
        appendDump(top, 0, dump);
        return dump;
    }

    /// All nodes that can be reached without going through a value.
    std::vector<PlainNode*> reachable();

private:
    PlainNode& make(PlainNode& parent, std::string_view name, bool isKey);
    void reduce(PlainNode& key, PlainTree& other, PlainNode& its);
    int mergeLine(std::string_view line, PlainNode*& current);
    int mergeKey(std::string_view line, PlainNode*& current);
    int mergeValue(std::string_view line, PlainNode& key);
    static void appendText(const PlainNode& key, std::string& text);
    static void appendDump(const PlainNode& top, int depth, std::string& dump);

    std::deque<PlainNode> m_nodes;  // handles may stand for nodes that are in the tree no more
};

/// All of a tree, or what is below a node of it, as PlainTree::dump. Finds each node by its name, too.
std::string dumpOf(const VQRegLib::CTree& tree, const VQRegLib::CKeyOrValue& top);
std::string dumpOf(const VQRegLib::CTree& tree);

std::string textOf(VQRegLib::CTree& tree);

}  // namespace vqtest

#endif  // VQTEST_TREE_PLAIN_TREE_H
