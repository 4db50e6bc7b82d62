// How nodes leave the tree. Nothing here needs memory or recursion, except where something has to be
// found out before: a line has room for a thousand levels, and a thread may have little stack.
//
// A node that leaves can have four fates.
//
//  - Nobody can refer to it: a value, or a key for which no handle was ever registered. Its memory is
//    free at once.
//  - It was deleted by a call and may have handles (m_ulKeyHandleID is not 0): it is marked as gone.
//    A handle that finds its node gone reads as an invalid one. The node stays for as long as a handle may
//    look at it, which the tree does not know: the store knows it, takes such nodes out of its table now
//    and then, and calls sweep(), which frees them.
//  - A value line of the file has taken its name, and it or a key below it has handles: it is displaced.
//    It keeps its parent, for its full name is made by walking up, and its children, which go on being
//    found by it; only what is above it no longer leads to it.
//  - It is above a displaced node and is itself deleted: it stays as long as the displaced one, gone but
//    in memory, because the names of that one are made of its own.
//
// The order in which a whole subtree leaves is from the last leaf up. Each leaf is taken out of its
// parent's lists before it is freed, so that at every moment what is left is a tree, and the walk needs
// neither a stack nor a list of what is still to come: lastLeaf() finds the next one from the top again.
// That is quadratic in the depth only, and files are flat.
#include <algorithm>

#include "RegLib/tree/Tree.h"

namespace VQRegLib {

void CTree::remove(CKeyOrValue& top) {
    if (top.m_state == CKeyOrValue::eDisplaced) {
        m_displaced.erase(std::find(m_displaced.begin(), m_displaced.end(), top.m_number));
    } else {
        textLoses(top);
        unlink(top);
    }
    letGo(top);
}

void CTree::unlink(CKeyOrValue& of) {
    const CKeyOrValue& parent = *parentOf(of);
    const std::string_view name = nameOf(of);
    CSiblings& among = siblings(parent, of.isKey());
    const auto isBefore = [&](NodeNumber number) {
        return compareFolded(nameOf(node(number)), name) < 0;
    };
    among.erase(among.countBefore(isBefore));
    m_index.remove(CNameIndex::hashOf(parent, CHashedName(name).hash()), of.m_number);
}

CKeyOrValue& CTree::lastLeaf(CKeyOrValue& top) const {
    CKeyOrValue* at = &top;
    while (hasChildren(*at)) {
        const CChildren& children = m_children[at->m_children];
        at = &node(children.keys.empty() ? children.values.back() : children.keys.back());
    }
    return *at;
}

// From the last leaf up. What handles may refer to, or what a displaced key below still takes its
// name from, stays in memory.
void CTree::letGo(CKeyOrValue& top) {
    for (bool isDone = false; !isDone;) {
        CKeyOrValue& leaf = lastLeaf(top);
        isDone = &leaf == &top;
        if (!isDone) {
            unlink(leaf);
        }
        const bool mayHaveHandles = leaf.isKey() && leaf.m_ulKeyHandleID != 0;
        if (mayHaveHandles || isAboveDisplaced(leaf)) {
            leaf.m_state = CKeyOrValue::eGone;
            ++m_gone;
        } else {
            free(leaf);
        }
    }
}

void CTree::free(CKeyOrValue& of) {
    if (of.m_children != 0) {
        m_children[of.m_children] = CChildren();
        m_freeChildren.push_back(of.m_children);
    }
    if (m_namesApart.size() > 1) {  // one is the root's
        m_namesApart.erase(of.m_number);
    }
    m_nodes.give(of);
}

void CTree::sweep() {
    m_gone = 0;
    m_nodes.forEach([this](CKeyOrValue& of) {
        if (of.m_state != CKeyOrValue::eGone) {
            return;
        }
        if (isAboveDisplaced(of)) {
            ++m_gone;
        } else {
            free(of);
        }
    });
}

// What may fail comes first again; keys that have been renamed by then are named as they should be.
void CTree::reduceTo(const CTree& other) {
    std::vector<std::pair<CKeyOrValue*, const CKeyOrValue*>> pairs{{&root(), &other.root()}};
    std::vector<CKeyOrValue*> missing;
    m_isOrdered = m_isFileText = m_isFaithful = false;
    for (std::size_t at = 0; at < pairs.size(); ++at) {
        const auto [mine, its] = pairs[at];
        for (const bool isKey : {false, true}) {
            const CSiblings& among = siblings(*mine, isKey);
            for (std::size_t index = 0; index < among.size(); ++index) {
                CKeyOrValue& child = node(among.at(index));
                const CKeyOrValue* const counterpart = other.findChild(*its, nameOf(child));
                if (!counterpart || counterpart->isKey() != isKey) {
                    missing.push_back(&child);
                } else {
                    pairs.emplace_back(&child, counterpart);
                }
            }
        }
    }
    for (const auto& [mine, its] : pairs) {
        if (mine->isKey() && (mine->line() != its->line() || nameOf(*mine) != other.nameOf(*its))) {
            takeName(*mine, other, *its);
        }
    }
    for (CKeyOrValue* const lacking : missing) {
        remove(*lacking);
    }
}

void CTree::takeName(CKeyOrValue& key, const CTree& other, const CKeyOrValue& from) {
    const std::string_view line(m_text.keep(from.line()), from.m_lineSize);
    const bool isApart = from.m_nameAt == CKeyOrValue::kNameApart;
    nameInLine(key, line,
               isApart ? other.nameOf(from) : line.substr(from.m_nameAt, from.m_nameSize));
}

bool CTree::hasHandlesBelow(const CKeyOrValue& top) const {
    std::vector<NodeNumber> left{top.m_number};
    while (!left.empty()) {
        const CKeyOrValue& at = node(left.back());
        left.pop_back();
        if (at.isKey() && at.m_ulKeyHandleID != 0) {
            return true;
        }
        const CChildren& children = m_children[at.m_children];
        for (const CSiblings* const siblings : {&children.keys, &children.values}) {
            for (std::size_t index = 0; index < siblings->size(); ++index) {
                left.push_back(siblings->at(index));
            }
        }
    }
    return false;
}

bool CTree::isAboveDisplaced(const CKeyOrValue& of) const {
    return std::any_of(m_displaced.begin(), m_displaced.end(), [&](NodeNumber displaced) {
        const CKeyOrValue* at = parentOf(node(displaced));
        while (at && at != &of) {
            at = parentOf(*at);
        }
        return at != nullptr;
    });
}

}  // namespace VQRegLib
