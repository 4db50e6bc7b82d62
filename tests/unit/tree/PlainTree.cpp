#include "unit/tree/PlainTree.h"

#include <algorithm>
#include <stdexcept>

#include "RegLib/text/LineFormat.h"

namespace vqtest {

using namespace VQRegLib;  // the result codes, and the nodes

namespace {

void appendDumpLine(std::string& dump, int depth, bool isKey, int type, std::string_view name,
                    std::string_view line) {
    dump.append(std::to_string(depth)).append(isKey ? " key " : " value ");
    dump.append(std::to_string(type)).append(" {").append(name).append("} ");
    dump.append(line).append("\n");
}

}  // namespace

std::string inLowerCase(std::string_view name) {
    std::string lower(name);
    for (char& byte : lower) {
        if (byte >= 'A' && byte <= 'Z') {
            byte = static_cast<char>(byte - 'A' + 'a');
        }
    }
    return lower;
}

PlainTree::PlainTree() : m_nodes(1) {
    root().isKey = true;
    root().name = "<root>";
}

PlainNode* PlainTree::find(PlainNode& parent, std::string_view name) const {
    const auto found = parent.children.find(inLowerCase(name));
    return found != parent.children.end() ? found->second : nullptr;
}

PlainNode& PlainTree::make(PlainNode& parent, std::string_view name, bool isKey) {
    PlainNode& made = m_nodes.emplace_back();
    made.isKey = isKey;
    made.name = name;
    made.parent = &parent;
    parent.children[inLowerCase(name)] = &made;
    return made;
}

PlainNode& PlainTree::addKey(PlainNode& parent, std::string_view name) {
    PlainNode& made = make(parent, name, true);
    std::string path;
    bool isFirst = true;
    std::vector<const PlainNode*> ancestry;
    for (const PlainNode* at = &made; at; at = at->parent) {
        ancestry.insert(ancestry.begin(), at);
    }
    for (const PlainNode* const at : ancestry) {
        if (at->name != "<root>") {
            path += (isFirst ? "" : "/") + at->name;
            isFirst = false;
        }
    }
    made.line = "[" + path + "]";
    return made;
}

PlainNode& PlainTree::addValue(PlainNode& parent, std::string_view name, int type,
                               std::string_view line) {
    PlainNode& made = make(parent, name, false);
    made.type = type;
    made.line = line;
    return made;
}

void PlainTree::remove(PlainNode& node) {
    const auto entry = node.parent->children.find(inLowerCase(node.name));
    if (entry != node.parent->children.end() && entry->second == &node) {
        node.parent->children.erase(entry);
    }
}

void PlainTree::reduce(PlainNode& key, PlainTree& other, PlainNode& its) {
    std::erase_if(key.children, [&](const auto& entry) {
        PlainNode* const counterpart = other.find(its, entry.second->name);
        return !counterpart || counterpart->isKey != entry.second->isKey;
    });
    key.name = its.name;
    key.line = its.line;
    for (const auto& [name, child] : key.children) {
        if (child->isKey) {
            reduce(*child, other, *other.find(its, name));
        }
    }
}

PlainOutcome PlainTree::merge(std::string_view text) {
    PlainOutcome outcome;
    PlainNode* current = nullptr;
    while (!text.empty()) {
        outcome.isEmpty = false;
        const std::size_t feed = text.find('\n');
        std::string_view line = text.substr(0, feed == std::string_view::npos ? feed : feed + 1);
        line = line.substr(0, 2048);
        text.remove_prefix(line.size());
        for (const char end : {'\0', '\r', '\n'}) {
            line = line.substr(0, line.find(end));
        }
        outcome.code = mergeLine(line, current);
        if (outcome.code < 0) {
            return outcome;
        }
    }
    outcome.code = REGLIB_E_END_OF_FILE;
    return outcome;
}

int PlainTree::mergeLine(std::string_view line, PlainNode*& current) {
    if (line.starts_with('[')) {
        return mergeKey(line, current);
    }
    return current ? mergeValue(line, *current) : REGLIB_E_BAD_FORMAT;
}

int PlainTree::mergeKey(std::string_view line, PlainNode*& current) {
    current = nullptr;
    const std::size_t close = line.find(']');
    if (close == std::string_view::npos) {
        return REGLIB_E_BAD_FORMAT;
    }
    PlainNode* at = &root();
    std::string_view path = line.substr(1, close - 1);
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), name.size() + 1));
        PlainNode* next = find(*at, name);
        if (!next) {
            next = &make(*at, name, true);
            next->line = line;
        }
        at = current = next;
    }
    return REGLIB_OK;
}

int PlainTree::mergeValue(std::string_view line, PlainNode& key) {
    const std::size_t open = line.find('"');
    const std::size_t close = open == std::string_view::npos ? open : line.find('"', open + 1);
    if (close == std::string_view::npos || line.substr(close + 1, 1) != "=") {
        return REGLIB_E_BAD_FORMAT;
    }
    const std::string_view rest = line.substr(close + 2);
    const std::string_view word = rest.substr(0, rest.find(':'));
    if (word.size() == rest.size() || (word != "binary" && word != "dword" && word != "string")) {
        return REGLIB_E_BAD_FORMAT;
    }
    addValue(key, line.substr(open + 1, close - open - 1),
             word == "binary"  ? 1
             : word == "dword" ? 2
                               : 3,
             line);
    return REGLIB_OK;
}

// Each line once: a key can be a thousand levels deep.
void PlainTree::appendText(const PlainNode& key, std::string& text) {
    if (key.name != "<root>") {
        text.append(key.line).append("\n");
    }
    for (const auto& [name, child] : key.children) {
        if (!child->isKey) {
            text.append(child->line).append("\n");
        }
    }
    for (const auto& [name, child] : key.children) {
        if (child->isKey) {
            appendText(*child, text);
        }
    }
}

void PlainTree::appendDump(const PlainNode& top, int depth, std::string& dump) {
    appendDumpLine(dump, depth, top.isKey, top.type, top.name, top.line);
    for (const auto& [name, child] : top.children) {
        if (top.isKey) {
            appendDump(*child, depth + 1, dump);
        }
    }
}

std::vector<PlainNode*> PlainTree::reachable() {
    std::vector<PlainNode*> all{&root()};
    for (std::size_t at = 0; at < all.size(); ++at) {
        for (const auto& [name, child] : all[at]->children) {
            if (all[at]->isKey) {
                all.push_back(child);
            }
        }
    }
    return all;
}

std::string dumpOf(const CTree& tree, const CKeyOrValue& top) {
    std::string result;
    tree.forEachShown(top, [&](const CKeyOrValue& at, unsigned long depth) {
        const CKeyOrValue* const parent = tree.parentOf(at);
        const std::string_view name = tree.nameOf(at);
        const bool isFound = &at == &top || (tree.findChild(*parent, name) == &at &&
                                             tree.findChild(*parent, name) == &at);
        CKeyOrValue& node = tree.node(at.m_number);
        std::string_view data;
        if (at.type() == CRegLib::eDword && dataOfLine(at.line(), data) >= 0 &&
            tree.dwordOf(node) != scanHex(data, 8)) {
            throw std::logic_error("another number than in the line " + std::string(at.line()));
        }
        if (!isFound) {
            throw std::logic_error("cannot find " + std::string(name));
        }
        appendDumpLine(result, static_cast<int>(depth), at.isKey(), at.type(), name, at.line());
    });
    return result;
}

std::string dumpOf(const CTree& tree) {
    return dumpOf(tree, tree.root());
}

std::string textOf(CTree& tree) {
    std::string text;
    for (const std::string_view piece : tree.text()) {
        text += piece;
    }
    return text;
}

}  // namespace vqtest
