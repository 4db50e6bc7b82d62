// The tree: keys and values in memory, as the lines of a file make them.
//
// What a node is. A key and a value are the same kind of thing: a node with a line of text, a parent and
// perhaps children. They have to be, because a file may turn one into the other at any moment: a line
// says `"App"=string:x` where a moment ago there was a key "App". Nodes lie in blocks that never move and
// know each other by 32-bit numbers. The text belongs to the tree as a whole (TreeText.cpp); a node only
// points to its line there, and to the name within the line. A name lies apart (m_namesApart) when the
// line does not say it: the root has no line; a key called "<root>" is left out of its own; and a value
// that was set under another spelling keeps the name it was created with.
//
// What a name means. Sub keys and values of one key share one space of names, A to Z being the same as
// a to z. So there is one index for the whole tree, from (parent, folded name) to the node, and beside it
// for each parent two ordered lists, values and keys. The index answers "is there a child of that name",
// which is nearly all that anybody ever asks; the lists answer "the third value" and give the file its
// order. Both must agree: every verb below that touches the one touches the other, in one function.
//
// What displaces what. A caller cannot give a value the name of a sub key or the reverse: that is refused
// before it comes here. A file can, and the rules for it are old. A value line takes the place of whatever
// bears its name: a value without children is brought up to date where it is, anything else leaves the
// tree with all below it. A key line takes nothing's place: it walks down its path, and where it finds a
// value on the way it goes on below that, so that values can have children, which no operation finds and
// no export writes. Programs have left such files behind, and each process must read them alike.
//
// Why nodes outlive their place in the tree. A caller's handle stands for a node, not for a name. When a
// value line takes the name of a key that somebody has open, that key is displaced: in no list, in no
// index and in no text, but whoever has the handle goes on reading and setting values in it. When a key
// is deleted by a call it is gone: its handles say so, which takes the node to be still there.
// Leaving.cpp has the details.
//
// What can fail. Every verb but reduceTo either succeeds or changes nothing. The pattern is the same
// everywhere: first whatever needs memory (a node, the copy of a line, room in the index and in a list),
// then the changes themselves, which cannot fail. CNewNode gives a node back when something throws in
// between. The text is the one exception: it may be forgotten at any time, and is then made anew when it
// is wanted.
#include "RegLib/tree/Tree.h"

#include <functional>
#include <stdexcept>

#include "RegLib/text/LineFormat.h"

namespace VQRegLib {

namespace {

// Sizes are kept in 32 bits.
void checkSize(std::string_view line) {
    if (line.size() >= CKeyOrValue::kNameApart) {
        throw std::length_error("a line too long");
    }
}

constexpr std::uintptr_t kCacheLine = 64;

// What lies so many cache lines behind something is on the way to the cache from now on.
void expectBehind(std::uintptr_t at, std::uintptr_t lines) {
    __builtin_prefetch(reinterpret_cast<const void*>(at + lines * kCacheLine));
}

std::uintptr_t placeOf(const void* at) {
    return reinterpret_cast<std::uintptr_t>(at);
}

// Whoever asks for one child asks for the next one. Its node and its line most likely lie behind this
// one's.
void expectNext(const CKeyOrValue& child) {
    expectBehind(placeOf(&child), 2);
    expectBehind(placeOf(child.m_line), 2);
}

}  // namespace

CTree::CTree() : m_children(1) {
    CKeyOrValue& root = m_nodes.take();
    root.m_iIsKey = 1;
    m_namesApart.emplace(root.m_number, kTreeRootName);
}

std::string_view CTree::nameApart(const CKeyOrValue& of) const {
    return m_namesApart.find(of.m_number)->second;
}

CSiblings& CTree::siblings(const CKeyOrValue& parent, bool isKey) {
    return m_children[parent.m_children].ofKind(isKey);
}

std::size_t CTree::countOfKind(const CKeyOrValue& parent, bool isKey) const {
    const CChildren& children = m_children[parent.m_children];
    return isKey ? children.keys.size() : children.values.size();
}

void CTree::expectValues(const CKeyOrValue& key, std::uintptr_t line) {
    for (std::uintptr_t lines = 1; lines <= 6; ++lines) {
        expectBehind(placeOf(&key), lines);
    }
    for (std::uintptr_t lines = 0; lines <= 6; ++lines) {
        expectBehind(line, lines);
    }
}

// On the straight way nothing is called, so that nothing has to be put aside for a call: a call costs more
// than the comparison of two short names.
CKeyOrValue* CTree::findNamed(const CKeyOrValue& parent, std::string_view name) const {
    if (name.size() > kTwoWords) [[unlikely]] {
        return findLong(parent, name);
    }
    const CHashedName hashed(name);
    const std::uint32_t hash = CNameIndex::hashOf(parent, hashed.hash());
    const CNameIndex::CEntry* const at = m_index.firstOf(hash);
    if (at->node == 0) {
        return nullptr;
    }
    CKeyOrValue& found = node(at->node);
    const bool isIt = found.m_parent == parent.m_number &&
                      found.m_nameAt != CKeyOrValue::kNameApart &&
                      hashed.isEqual({found.m_line + found.m_nameAt, found.m_nameSize});
    return isIt ? &found : findSpelled(parent, name, hash, at);
}

CKeyOrValue* CTree::findLong(const CKeyOrValue& parent, std::string_view name) const {
    return findChild(parent, name);
}

CKeyOrValue* CTree::findSpelled(const CKeyOrValue& parent, std::string_view name,
                                std::uint32_t hash, const CNameIndex::CEntry* at) const {
    for (; at->node != 0; at = m_index.nextOf(hash, at)) {
        CKeyOrValue& of = node(at->node);
        if (of.m_parent == parent.m_number && isSameName(name, nameOf(of))) {
            return &of;
        }
    }
    return nullptr;
}

CKeyOrValue* CTree::childOfKind(const CKeyOrValue& parent, bool isKey, int index) const {
    const CChildren& children = m_children[parent.m_children];
    const CSiblings& siblings = isKey ? children.keys : children.values;
    const bool isThere = index >= 0 && static_cast<std::size_t>(index) < siblings.size();
    if (!isThere) {
        return nullptr;
    }
    CKeyOrValue& child = node(siblings.at(static_cast<std::size_t>(index)));
    expectNext(child);
    return &child;
}

std::size_t CTree::placeAmong(const CSiblings& siblings, std::string_view name) const {
    const auto isBefore = [&](NodeNumber number) {
        return compareFolded(nameOf(node(number)), name) < 0;
    };
    // Lines of a file arrive in order.
    return siblings.empty() || isBefore(siblings.back()) ? siblings.size()
                                                         : siblings.countBefore(isBefore);
}

std::string CTree::fullNameFor(const CKeyOrValue* parent, std::string_view name) const {
    std::vector<std::string_view> names{name};
    for (const CKeyOrValue* at = parent; at; at = parentOf(*at)) {
        names.push_back(nameOf(*at));
    }
    std::string result = "[";
    bool isFirst = true;
    for (auto at = names.rbegin(); at != names.rend(); ++at) {
        if (*at == kTreeRootName) {
            continue;  // whoever bears that name, the tree root or a key of a caller
        }
        if (!isFirst) {
            result += '/';
        }
        isFirst = false;
        result += *at;
    }
    result += ']';
    return result;
}

void CTree::giveLists(CKeyOrValue& to) {
    if (m_freeChildren.empty()) {
        // With room for all of them, so that giving lists back never fails.
        if (m_freeChildren.capacity() < m_children.size()) {
            m_freeChildren.reserve(2 * m_children.size());
        }
        m_children.emplace_back();
        m_freeChildren.push_back(static_cast<std::uint32_t>(m_children.size() - 1));
    }
    to.m_children = m_freeChildren.back();
    m_freeChildren.pop_back();
}

// The name is a part of the line, or lies apart.
void CTree::nameInLine(CKeyOrValue& of, std::string_view line, std::string_view name) {
    const std::less_equal<const char*> isUpTo;
    const bool isInside = isUpTo(line.data(), name.data()) &&
                          isUpTo(name.data() + name.size(), line.data() + line.size());
    if (isInside) {
        nameWithin(of, line, name);
    } else {
        m_namesApart.insert_or_assign(of.m_number, std::string(name));
        of.m_nameAt = CKeyOrValue::kNameApart;
        of.m_line = line.data();
        of.m_lineSize = static_cast<std::uint32_t>(line.size());
    }
}

// The line is in the tree's memory, and the name is what it says.
void CTree::useLine(CKeyOrValue& value, std::string_view line, std::string_view name,
                    CRegLib::eDataType type) {
    constexpr std::size_t kTheRoots = 1;
    if (value.m_nameAt == CKeyOrValue::kNameApart && m_namesApart.size() > kTheRoots) {
        m_namesApart.erase(value.m_number);
    }
    nameWithin(value, line, name);
    value.m_eDataType = static_cast<std::uint8_t>(type);
    value.m_decoding = CKeyOrValue::eNotDecoded;
}

// What may fail comes first; a parent that got its lists in vain keeps them.
CKeyOrValue& CTree::linkAt(std::size_t place, CKeyOrValue& parent, CNewNode& made,
                           const CHashedName& name) {
    if (parent.m_children == 0) {
        giveLists(parent);
    }
    m_index.reserve(1);
    CSiblings& among = siblings(parent, made->isKey());
    if (place == kBehindAll) {
        among.append(made->m_number);
    } else {
        among.insert(place, made->m_number);
    }
    made->m_parent = parent.m_number;
    m_index.add(CNameIndex::hashOf(parent, name.hash()), made->m_number);
    CKeyOrValue& linked = *made;
    made.release();
    return linked;
}

// The name comes after those of all children: lines of a file arrive in order, and what they name need
// not be looked for then.
bool CTree::isBehindAll(const CKeyOrValue& parent, const CHashedName& name) const {
    const CChildren& children = m_children[parent.m_children];
    const auto isBehind = [&](const CSiblings& among) {
        return among.empty() || compareFolded(nameOf(node(among.back())), name.text()) < 0;
    };
    return isBehind(children.values) && isBehind(children.keys);
}

// A value takes the place of what bears its name. Keys with handles go on without their place.
void CTree::displaceBy(CKeyOrValue& old, CNewNode& made, const CHashedName& name) {
    const bool isKept = hasHandlesBelow(old);
    if (m_displaced.size() == m_displaced.capacity()) {
        m_displaced.reserve(2 * m_displaced.size() + 1);
    }
    CKeyOrValue& parent = *parentOf(old);
    CSiblings& values = siblings(parent, false);
    const std::size_t place = placeAmong(values, name.text());
    if (old.isKey()) {
        values.insert(place, made->m_number);
        CSiblings& keys = siblings(parent, true);
        keys.erase(placeAmong(keys, name.text()));
    } else {
        values.replace(place, made->m_number);
    }
    m_index.replace(CNameIndex::hashOf(parent, name.hash()), old.m_number, made->m_number);
    made->m_parent = parent.m_number;
    made.release();
    m_isOrdered = false;
    if (isKept) {
        old.m_state = CKeyOrValue::eDisplaced;
        m_displaced.push_back(old.m_number);
    } else {
        letGo(old);
    }
}

CKeyOrValue& CTree::addKey(CKeyOrValue& parent, const CHashedName& hashed) {
    const std::string_view name = hashed.text();
    const std::string fullName = fullNameFor(&parent, name);
    checkSize(fullName);
    CNewNode made(*this);
    made->m_iIsKey = 1;
    const std::string_view line(m_text.keep(fullName), fullName.size());
    const bool isAtEnd = line.substr(0, line.size() - 1).ends_with(name) && name != kTreeRootName;
    nameInLine(*made, line,
               isAtEnd ? line.substr(line.size() - 1 - name.size(), name.size()) : name);
    CKeyOrValue& key = link(parent, made, hashed);
    textGains(key);
    wasteNoText();
    return key;
}

CKeyOrValue& CTree::addValue(CKeyOrValue& parent, const CHashedName& hashed,
                             CRegLib::eDataType type, std::string_view line) {
    const std::string_view name = hashed.text();
    checkSize(line);
    CNewNode made(*this);
    made->m_eDataType = static_cast<std::uint8_t>(type);
    const std::string_view kept(m_text.keep(line), line.size());
    const bool isInside = kept.size() > name.size() && kept.substr(1, name.size()) == name;
    nameInLine(*made, kept, isInside ? kept.substr(1, name.size()) : name);
    CKeyOrValue& value = link(parent, made, hashed);
    textGains(value);
    wasteNoText();
    return value;
}

void CTree::setValue(CKeyOrValue& value, CRegLib::eDataType type, std::string_view line) {
    checkSize(line);
    const std::string_view name = nameOf(value);
    const bool isInside = line.size() > name.size() && line.substr(1, name.size()) == name;
    const std::string_view old = value.line();
    const bool isInPlace = old.size() == line.size() && isInside && value.m_nameAt == 1;
    const bool isNamedApart = value.m_nameAt == CKeyOrValue::kNameApart;
    if (!isInside && !isNamedApart) {
        m_namesApart.insert_or_assign(value.m_number, std::string(name));
    }
    if (isInPlace) {
        // All text is the tree's own memory, and nobody else looks at this line.
        line.copy(const_cast<char*>(value.m_line), line.size());
    } else {
        const std::string_view kept(m_text.keep(line), line.size());
        if (m_isOrdered) {
            m_text.replace(old, kept);
        }
        value.m_line = kept.data();
        value.m_lineSize = static_cast<std::uint32_t>(kept.size());
        value.m_nameAt = isInside ? 1 : CKeyOrValue::kNameApart;
        value.m_nameSize = static_cast<std::uint32_t>(name.size());
    }
    if (isInside && isNamedApart) {
        m_namesApart.erase(value.m_number);
    }
    value.m_eDataType = static_cast<std::uint8_t>(type);
    value.m_decoding = CKeyOrValue::eNotDecoded;
    m_isFileText = false;
    m_isFaithful = m_isFaithful && isReadBack(value);
    wasteNoText();
}

// Whether the line is read back as what it was made of depends on what stands before the number.
bool CTree::setNumberInPlace(CKeyOrValue& value, std::uint32_t number) {
    if (value.type() != CRegLib::eDword || !isAsComposed(value)) {
        return false;
    }
    // All text is the tree's own memory, and nobody else looks at this line.
    renumberDwordLine(const_cast<char*>(value.m_line), value.m_lineSize, number);
    value.m_dword = number;
    m_isFileText = false;
    return true;
}

int CTree::locateData(CKeyOrValue& value, std::string_view& data) const {
    const int result = dataOfLine(value.line(), data);
    if (result >= 0) {
        value.m_dataAt = value.m_lineSize - static_cast<std::uint32_t>(data.size());
        value.m_decoding = CKeyOrValue::eDecoded;
    }
    return result;
}

std::uint32_t CTree::decoded(CKeyOrValue& value) const {
    std::string_view data;
    value.m_dword = dataOfLine(value.line(), data) < 0 ? 0 : scanHex(data, 8);
    value.m_decoding = isDwordLine(value.line(), nameOf(value), value.m_dword)
                           ? CKeyOrValue::eAsComposed
                           : CKeyOrValue::eDecoded;
    return value.m_dword;
}

}  // namespace VQRegLib
