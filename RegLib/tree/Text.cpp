// What a tree is as a text.
//
// There are three questions, and a flag for each.
//
//  - Is the order known (m_isOrdered)? The list of pieces is then what an export writes: the lines of all
//    nodes that are in the file, values before sub keys, each kind by its folded names. A change of one
//    line keeps that true at little cost, by a splice at the right place; any merge of a whole
//    text, or the removal of a subtree, gives it up, and the next export makes the text anew.
//  - Is it the file (m_isFileText)? What was read, or written, last. Only then may a new text be compared
//    with it line by line instead of being merged (Step.cpp).
//  - Is it faithful (m_isFaithful)? Would a process that reads this text make the tree that this one has?
//    Mostly. But the format escapes nothing: a value whose text holds a line end, a name with a quote, a
//    key called "<root>", a value whose line has another spelling than its name are written as they are
//    and come back as something else. After such a line has been written, another process has another
//    tree than this one, and this one learns what the file really says when it next reads the whole of it.
//    That is why a write of a text that is not faithful does not count as "the file is known".
//
// Space. Lines that have changed their length lie in blocks of their own, and the places they had before
// lie idle in the big one. When that waste passes a bound that grows with the tree, the text is made anew
// and everything moves into one block. So the memory of a store that changes all day stays in proportion
// to what it holds.
#include "RegLib/text/LineFormat.h"
#include "RegLib/text/LineSplitter.h"
#include "RegLib/tree/Tree.h"

namespace VQRegLib {

namespace {

// Whether a line stays in one piece when it is read.
bool isOneLine(std::string_view line) {
    return line.size() < kLongestPiece && line.find('\n') == std::string_view::npos &&
           line.find('\r') == std::string_view::npos;
}

// What has gathered beside the text until it is made anew, whatever its size.
constexpr std::size_t kUsualWaste = 256UL * 1024;

}  // namespace

// Whether the node's line, once read by another process, makes the same node there. Names that the
// format cannot hold do not, nor does a value whose line has another spelling of its name.
bool CTree::isReadBack(const CKeyOrValue& of) const {
    if (!isOneLine(of.line())) {
        return false;
    }
    if (!of.isKey()) {
        CValueLine parts;
        return parseValueLine(of.line(), parts) >= 0 && parts.name == nameOf(of) &&
               parts.type == of.m_eDataType;
    }
    std::string_view path;
    const CKeyOrValue* at = &root();
    if (parseKeyLine(of.line(), path) < 0) {
        return false;
    }
    for (std::string_view name; at && nextKeyLineName(path, name);) {
        at = findChild(*at, name);
    }
    return at == &of;
}

bool CTree::isInText(const CKeyOrValue& of) const {
    const CKeyOrValue* at = &of;
    while (at->m_state == CKeyOrValue::eInTree && at->m_parent != 0 && node(at->m_parent).isKey()) {
        at = parentOf(*at);
    }
    return at == &root();
}

const CKeyOrValue& CTree::lastBelow(const CKeyOrValue& top) const {
    const CKeyOrValue* at = &top;
    while (countOfKind(*at, true) > 0) {
        at = &node(m_children[at->m_children].keys.back());
    }
    return countOfKind(*at, false) > 0 ? node(m_children[at->m_children].values.back()) : *at;
}

// The node whose line comes before that of a node which has just been added.
const CKeyOrValue* CTree::lineBefore(const CKeyOrValue& added) const {
    const CKeyOrValue& parent = *parentOf(added);
    const CChildren& children = m_children[parent.m_children];
    const CSiblings& among = added.isKey() ? children.keys : children.values;
    const std::string_view name = nameOf(added);
    const std::size_t place = among.countBefore(
        [&](NodeNumber number) { return compareFolded(nameOf(node(number)), name) < 0; });
    const CKeyOrValue* before = &parent;
    if (place > 0) {
        const CKeyOrValue& sibling = node(among.at(place - 1));
        before = added.isKey() ? &lastBelow(sibling) : &sibling;
    } else if (added.isKey() && !children.values.empty()) {
        before = &node(children.values.back());
    }
    return hasLine(*before) ? before : nullptr;
}

void CTree::textGains(const CKeyOrValue& added) {
    m_isFileText = false;
    m_isFaithful = m_isFaithful && isReadBack(added);
    if (!m_isOrdered || !isInText(added) || !hasLine(added)) {
        return;
    }
    const CKeyOrValue* const before = lineBefore(added);
    if (before) {
        m_text.insertAfter(before->line(), added.line());
    }
    m_isOrdered = before != nullptr;
}

void CTree::textLoses(const CKeyOrValue& top) {
    m_isFileText = false;
    if (!m_isOrdered || !isInText(top)) {
        return;
    }
    m_isOrdered = !hasChildren(top) && hasLine(top);
    if (m_isOrdered) {
        m_text.erase(top.line());
    }
}

bool CTree::hasValue() const {
    std::vector<NodeNumber> left{root().m_number};
    while (!left.empty()) {
        const CChildren& children = m_children[node(left.back()).m_children];
        left.pop_back();
        if (!children.values.empty()) {
            return true;
        }
        for (std::size_t index = 0; index < children.keys.size(); ++index) {
            left.push_back(children.keys.at(index));
        }
    }
    return false;
}

// Lines that have changed lie in blocks of their own; when they have come to that much, the text is
// made anew.
bool CTree::isTextWasteful() const {
    return m_text.keptSize() > kUsualWaste + m_nodes.size() * 16;
}

// What can wait for the memory that it takes.
void CTree::wasteNoText() try {
    if (isTextWasteful()) {
        makeText();
    }
} catch (const std::bad_alloc&) {
    return;
}

const std::vector<std::string_view>& CTree::text() {
    if (!m_isOrdered || !m_text.isKnown() || isTextWasteful()) {
        makeText();
    }
    return m_text.pieces();
}

// In one block, to which all nodes then point. When the memory for something gives out half-way, some
// point to the old blocks and some to the new one, which is as good.
void CTree::makeText() {
    m_isOrdered = false;
    m_isFileText = false;
    m_text.forget();
    std::size_t most = 0;
    m_nodes.forEach([&](const CKeyOrValue& of) { most += of.m_lineSize + std::size_t{1}; });
    const std::size_t oldBlocks = m_text.blocks();
    char* const block = m_text.addBlock(most);
    const std::size_t size = static_cast<std::size_t>(writeLines(block) - block);
    m_text.setPieces({{block, size}});
    keepLinesOutside(oldBlocks);
    m_text.dropBlocksBefore(oldBlocks);
    m_isOrdered = true;
}

char* CTree::writeLines(char* at) {
    struct CStage {
        NodeNumber key;
        std::size_t next;
    };
    bool isFaithful = true;
    const bool isChecked = !m_isFaithful;
    const auto write = [&](CKeyOrValue& of) {
        of.line().copy(at, of.m_lineSize);
        of.m_line = at;
        at += of.m_lineSize;
        *at++ = '\n';
        isFaithful = isFaithful && (!isChecked || isReadBack(of));
    };
    const auto writeKey = [&](CKeyOrValue& key) {
        const CSiblings& values = m_children[key.m_children].values;
        if (hasLine(key)) {
            write(key);
        } else if (&key != &root() || !values.empty()) {
            isFaithful = false;  // what follows belongs to another key once it is read, or to none
        }
        for (std::size_t index = 0; index < values.size(); ++index) {
            write(node(values.at(index)));
        }
    };
    std::vector<CStage> stages{{root().m_number, 0}};
    writeKey(root());
    while (!stages.empty()) {
        CStage& stage = stages.back();
        const CSiblings& keys = m_children[node(stage.key).m_children].keys;
        if (stage.next == keys.size()) {
            stages.pop_back();
            continue;
        }
        CKeyOrValue& key = node(keys.at(stage.next++));
        writeKey(key);
        stages.push_back({key.m_number, 0});
    }
    m_isFaithful = isFaithful;
    return at;
}

// Copies the lines of all nodes that do not point into the blocks from a number on, before the others
// are dropped.
void CTree::keepLinesOutside(std::size_t firstBlock) {
    if (firstBlock > 0) {  // there are others that they could point into
        m_nodes.forEach([&](CKeyOrValue& of) {
            if (of.m_lineSize > 0 && !m_text.isInBlocksFrom(firstBlock, of.m_line)) {
                of.m_line = m_text.keep(of.line());
            }
        });
    }
    m_text.settle();
}

void CTree::forEachShown(
    const CKeyOrValue& top,
    const std::function<void(const CKeyOrValue&, unsigned long)>& visit) const {
    struct CStage {
        NodeNumber key;
        std::size_t nextValue;
        std::size_t nextKey;
    };
    visit(top, 0);
    if (!top.isKey()) {
        return;
    }
    std::vector<CStage> stages{{top.m_number, 0, 0}};
    while (!stages.empty()) {
        CStage& stage = stages.back();
        const CChildren& children = m_children[node(stage.key).m_children];
        const bool hasMoreValues = stage.nextValue < children.values.size();
        const bool hasMoreKeys = stage.nextKey < children.keys.size();
        if (!hasMoreValues && !hasMoreKeys) {
            stages.pop_back();
            continue;
        }
        const auto nameOfNext = [&](const CSiblings& among, std::size_t index) {
            return nameOf(node(among.at(index)));
        };
        const bool isValue =
            !hasMoreKeys ||
            (hasMoreValues && compareFolded(nameOfNext(children.values, stage.nextValue),
                                            nameOfNext(children.keys, stage.nextKey)) < 0);
        const CKeyOrValue& next = node(isValue ? children.values.at(stage.nextValue++)
                                               : children.keys.at(stage.nextKey++));
        visit(next, static_cast<unsigned long>(stages.size()));
        if (!isValue) {
            stages.push_back({next.m_number, 0, 0});
        }
    }
}

}  // namespace VQRegLib
