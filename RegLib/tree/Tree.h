// The keys and values of a store in memory, and the text that they make.
#ifndef REGLIB_TREE_TREE_H
#define REGLIB_TREE_TREE_H

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "RegLib/base/Folding.h"
#include "RegLib/base/HashedName.h"
#include "RegLib/tree/KeyOrValue.h"
#include "RegLib/tree/NameIndex.h"
#include "RegLib/tree/NodePool.h"
#include "RegLib/tree/Siblings.h"
#include "RegLib/tree/TreeText.h"

namespace VQRegLib {

// Sub keys and values of one key share their names: what bears a name, whatever its case, is found by
// it. Values come before sub keys in the file, and each kind in the order of its folded names.
//
// Every verb either succeeds or changes nothing, but for reduceTo; those that need memory throw
// std::bad_alloc, or std::length_error for a line that no file could hold.
//
// Nodes outlive their place in the tree. A handle may stand for a key that has been deleted, or whose
// name a line of the file has given to a value. The first kind is gone: it stays in memory, and says so,
// until somebody makes sure that no handle refers to it (sweep). The second kind is displaced: it is in
// nobody's list and in no text any more, but whoever has a handle goes on working with it.
class CTree {
public:
    CTree();
    CTree(const CTree&) = delete;
    CTree& operator=(const CTree&) = delete;

    CKeyOrValue& root() const { return node(1); }
    CKeyOrValue& node(NodeNumber number) const { return m_nodes[number]; }
    CKeyOrValue* parentOf(const CKeyOrValue& child) const {
        return child.m_parent != 0 ? &node(child.m_parent) : nullptr;
    }
    std::size_t size() const { return m_nodes.size(); }

    // As it was created. Valid until the tree changes.
    std::string_view nameOf(const CKeyOrValue& of) const {
        return of.m_nameAt != CKeyOrValue::kNameApart
                   ? std::string_view(of.m_line + of.m_nameAt, of.m_nameSize)
                   : nameApart(of);
    }

    // Whoever looks up names at random seldom finds anything of the tree in the cache.
    bool isLarge() const { return m_index.isLarge(); }

    // The nodes of the values with which a key was read lie behind its own, and their lines behind its line.
    // All of them can be had in the time in which the index tells which one it is, as long as nobody has to
    // wait for the key's node to know where its line is: the caller knows that from the last time.
    static void expectValues(const CKeyOrValue& key, std::uintptr_t line);

    // Null when there is none.
    [[gnu::always_inline]] CKeyOrValue* findChild(const CKeyOrValue& parent,
                                                  const CHashedName& name) const {
        const std::uint32_t hash = CNameIndex::hashOf(parent, name.hash());
        const CNameIndex::CEntry* at = m_index.firstOf(hash);
        for (; at->node != 0; at = m_index.nextOf(hash, at)) {
            CKeyOrValue& of = node(at->node);
            if (of.m_parent == parent.m_number && name.isSame(nameOf(of))) {
                return &of;
            }
        }
        return nullptr;
    }

    // The same where the name is most likely short, spelled as it was created and there. Every query is
    // little else than this.
    CKeyOrValue* findNamed(const CKeyOrValue& parent, std::string_view name) const;

    // The index-th sub key, or value; null past the last one and for an index below 0.
    CKeyOrValue* childOfKind(const CKeyOrValue& parent, bool isKey, int index) const;
    std::size_t countOfKind(const CKeyOrValue& parent, bool isKey) const;
    bool hasChildren(const CKeyOrValue& of) const {
        return countOfKind(of, true) + countOfKind(of, false) > 0;
    }

    // The header that a key called `name` gets below `parent`, which may be null.
    std::string fullNameFor(const CKeyOrValue* parent, std::string_view name) const;

    // The parent has no child of that name.
    CKeyOrValue& addKey(CKeyOrValue& parent, const CHashedName& name);
    CKeyOrValue& addValue(CKeyOrValue& parent, const CHashedName& name, CRegLib::eDataType type,
                          std::string_view line);

    // The value keeps the spelling of its name, whatever the line says.
    void setValue(CKeyOrValue& value, CRegLib::eDataType type, std::string_view line);

    // The same for a number that takes another one's place in its line, which needs no memory. False, and
    // nothing has changed, where the line is not as it would be composed.
    bool setNumberInPlace(CKeyOrValue& value, std::uint32_t number);

    // The number of a value of type eDword.
    std::uint32_t dwordOf(CKeyOrValue& value) const {
        return value.m_decoding != CKeyOrValue::eNotDecoded ? value.m_dword : decoded(value);
    }

    // The data of a value of another type, as its line says them; dataOfLine's codes.
    [[nodiscard]] int dataOf(CKeyOrValue& value, std::string_view& data) const {
        if (value.m_decoding == CKeyOrValue::eNotDecoded) {
            return locateData(value, data);
        }
        data = value.line().substr(value.m_dataAt);
        return REGLIB_OK;
    }

    // Whether the line of a number is the one that would be composed for the number, under its own name.
    bool isLineOf(CKeyOrValue& value, std::uint32_t number) const {
        return dwordOf(value) == number && isAsComposed(value);
    }

    // Takes a node out of the tree, with all below it. It may be a displaced one.
    void remove(CKeyOrValue& top);

    // Takes out whatever another tree does not have, and names the keys that both have as it does.
    void reduceTo(const CTree& other);

    // Nodes that are gone and not yet freed.
    std::size_t gone() const { return m_gone; }
    void sweep();  // frees them: no handle refers to any of them

    std::size_t displaced() const { return m_displaced.size(); }

    // A value is in the file, or would be.
    bool hasValue() const;

    // The whole text, in order; valid until the tree changes.
    const std::vector<std::string_view>& text();

    // The file now is what text() last said.
    void textWasWritten() { m_isFileText = m_isFaithful; }

    // A walk over `top` and what is below it, values and sub keys together in the order of their names,
    // a node before those below it, nothing below a value. `visit` gets the node and its depth.
    void forEachShown(const CKeyOrValue& top,
                      const std::function<void(const CKeyOrValue&, unsigned long)>& visit) const;

private:
    friend class CMerge;
    friend class CPlainValues;
    friend class CStep;

    struct CChildren {
        CSiblings values;
        CSiblings keys;
        CSiblings& ofKind(bool isKey) { return isKey ? keys : values; }
    };
    // A node that is about to be linked; it goes back unless it is.
    class CNewNode {
    public:
        explicit CNewNode(CTree& tree) : m_tree(tree), m_node(&tree.m_nodes.take()) {}
        ~CNewNode() {
            if (m_node) {
                m_tree.free(*m_node);
            }
        }
        CNewNode(const CNewNode&) = delete;
        CNewNode& operator=(const CNewNode&) = delete;
        CKeyOrValue& operator*() const { return *m_node; }
        CKeyOrValue* operator->() const { return m_node; }
        void release() { m_node = nullptr; }

    private:
        CTree& m_tree;
        CKeyOrValue* m_node;
    };

    CKeyOrValue* findLong(const CKeyOrValue& parent, std::string_view name) const;
    CKeyOrValue* findSpelled(const CKeyOrValue& parent, std::string_view name, std::uint32_t hash,
                             const CNameIndex::CEntry* at) const;
    std::uint32_t decoded(CKeyOrValue& value) const;
    [[nodiscard]] int locateData(CKeyOrValue& value, std::string_view& data) const;
    bool isAsComposed(CKeyOrValue& value) const {
        (void)dwordOf(value);
        return value.m_decoding == CKeyOrValue::eAsComposed;
    }
    std::string_view nameApart(const CKeyOrValue& of) const;
    CSiblings& siblings(const CKeyOrValue& parent, bool isKey);
    std::size_t placeAmong(const CSiblings& siblings, std::string_view name) const;

    // Linking; Tree.cpp.
    void giveLists(CKeyOrValue& to);
    CKeyOrValue& link(CKeyOrValue& parent, CNewNode& made, const CHashedName& name) {
        return linkAt(placeAmong(siblings(parent, made->isKey()), name.text()), parent, made, name);
    }
    static constexpr std::size_t kBehindAll = ~std::size_t{0};
    CKeyOrValue& linkAt(std::size_t place, CKeyOrValue& parent, CNewNode& made,
                        const CHashedName& name);
    bool isBehindAll(const CKeyOrValue& parent, const CHashedName& name) const;
    void displaceBy(CKeyOrValue& old, CNewNode& made, const CHashedName& name);
    void useLine(CKeyOrValue& value, std::string_view line, std::string_view name,
                 CRegLib::eDataType type);
    void nameInLine(CKeyOrValue& of, std::string_view line, std::string_view name);
    static void nameWithin(CKeyOrValue& of, std::string_view line, std::string_view name) {
        of.m_nameAt = static_cast<std::uint32_t>(name.data() - line.data());
        of.m_nameSize = static_cast<std::uint32_t>(name.size());
        of.m_line = line.data();
        of.m_lineSize = static_cast<std::uint32_t>(line.size());
    }

    // Leaving; Leaving.cpp.
    void unlink(CKeyOrValue& of);
    void letGo(CKeyOrValue& top);
    void free(CKeyOrValue& of);
    CKeyOrValue& lastLeaf(CKeyOrValue& top) const;
    void takeName(CKeyOrValue& key, const CTree& other, const CKeyOrValue& from);
    bool hasHandlesBelow(const CKeyOrValue& top) const;
    bool isAboveDisplaced(const CKeyOrValue& of) const;

    // Text; Text.cpp.
    bool hasLine(const CKeyOrValue& of) const { return !of.isKey() || nameOf(of) != kTreeRootName; }
    bool isInText(const CKeyOrValue& of) const;
    bool isReadBack(const CKeyOrValue& of) const;
    const CKeyOrValue* lineBefore(const CKeyOrValue& added) const;
    void textGains(const CKeyOrValue& added);
    void textLoses(const CKeyOrValue& top);
    const CKeyOrValue& lastBelow(const CKeyOrValue& top) const;
    void makeText();
    char* writeLines(char* at);
    void keepLinesOutside(std::size_t firstBlock);
    bool isTextWasteful() const;
    void wasteNoText();

    CNodePool m_nodes;
    CNameIndex m_index;
    std::deque<CChildren> m_children;  // by CKeyOrValue::m_children; the first one is nobody's
    std::vector<std::uint32_t> m_freeChildren;
    std::unordered_map<NodeNumber, std::string> m_namesApart;
    std::vector<NodeNumber> m_displaced;
    std::size_t m_gone = 0;

    CTreeText m_text;
    bool m_isOrdered = false;  // the known text is what is to be written

    // The known text is the file, each line of which is one node's; perhaps not in order.
    bool m_isFileText = false;

    bool m_isFaithful = true;  // a line that is written says, once read, what it was made of
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_TREE_H
