#include "RegLib/tree/Merge.h"

#include <functional>
#include <new>
#include <utility>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/LineSplitter.h"
#include "RegLib/tree/Step.h"

namespace VQRegLib {

CMergeResult mergeText(CTree& tree, CTextSource& source) {
    CStep step(tree);
    if (!source.wantsLines() && step.canRun()) {
        CMergeResult result;
        if (step.run(source, result)) {
            return result;
        }
        source.rewind();
    }
    return CMerge(tree).run(source);
}

// With one byte to spare, so that a full block never tells the end of the text.
std::string_view CMerge::readAll(CTextSource& source) {
    std::size_t room = source.size() + 1;
    char* block = m_tree.m_text.addBlock(room);
    std::size_t size = source.read(block, room);
    while (size == room) {
        char* const larger = m_tree.m_text.addBlock(2 * room);
        std::string_view(block, size).copy(larger, size);
        block = larger;
        size += source.read(block + size, room);
        room *= 2;
    }
    return {block, size};
}

CMergeResult CMerge::run(CTextSource& source) {
    CTreeText& treeText = m_tree.m_text;
    treeText.forget();
    m_tree.m_isOrdered = m_tree.m_isFileText = false;
    CMergeResult result;
    m_text = readAll(source);
    const std::size_t oldBlocks = treeText.blocks() - 1;
    result.readError = source.error();
    // After a read error the beginning of a line is not trusted.
    const std::string_view whole =
        m_text.substr(0, result.readError != 0 ? m_text.rfind('\n') + 1 : std::string_view::npos);
    m_isOneToOne = result.readError == 0 && whole.ends_with('\n') &&
                   whole.find('\0') == std::string_view::npos &&
                   whole.find('\r') == std::string_view::npos;
    // A merge that ends half-way for want of memory leaves keys that no line tells of.
    const bool wasFaithful = std::exchange(m_tree.m_isFaithful, false);
    result.code = lines(whole, source, result);
    m_tree.m_isFaithful = wasFaithful && m_isOneToOne;
    try {
        treeText.setWhole(m_text);
        m_tree.m_isFileText = m_isOneToOne && result.code == REGLIB_E_END_OF_FILE;
        m_tree.keepLinesOutside(m_text);
        treeText.dropBlocksBefore(oldBlocks);
    } catch (const std::bad_alloc&) {
        // Then the old blocks stay until the next time.
    }
    return result;
}

int CMerge::lines(std::string_view text, CTextSource& source, CMergeResult& result) {
    const bool isTold = source.wantsLines();
    result.isEmpty = true;
    while (!text.empty()) {
        std::string_view piece;
        takePiece(text, true, piece);
        m_isOneToOne = m_isOneToOne && piece.back() == '\n';
        const std::string_view one =
            m_isOneToOne ? piece.substr(0, piece.size() - 1) : lineOfPiece(piece);
        result.isEmpty = false;
        if (isTold) {
            source.onLine(one);
        }
        const int code = line(one);
        if (code < 0) {
            return code;
        }
        result.hasValues = result.hasValues || one.empty() || one.front() != '[';
    }
    return REGLIB_E_END_OF_FILE;
}

int CMerge::line(std::string_view line) {
    if (!line.empty() && line.front() == '[') {
        return keyLine(line);
    }
    return m_pCurrent ? valueLine(line) : REGLIB_E_BAD_FORMAT;
}

bool CMerge::isOfThisText(const CKeyOrValue& of) const {
    constexpr std::less<const char*> isBelow;
    return !isBelow(of.m_pLine, m_text.data()) &&
           isBelow(of.m_pLine, m_text.data() + m_text.size());
}

// An existing key keeps the line that it was made with.
void CMerge::useKeyLine(CKeyOrValue& key, std::string_view line) {
    m_isOneToOne = m_isOneToOne && key.line() == line && !isOfThisText(key);
    if (m_isOneToOne) {
        key.m_pLine = line.data();
    }
}

int CMerge::keyLine(std::string_view line) {
    m_pCurrent = nullptr;
    std::string_view path;
    const int result = parseKeyLine(line, path);
    if (result < 0) {
        return result;
    }
    CKeyOrValue* at = &m_tree.root();
    int made = 0;
    for (std::string_view name; nextKeyLineName(path, name);) {
        const CFoldedName folded(name);
        CKeyOrValue* next = m_tree.findChild(*at, folded);
        if (!next) {
            CTree::CNewNode key(m_tree);
            key->m_iIsKey = 1;
            m_tree.nameInLine(*key, line, name);  // the whole line, also what follows the bracket
            next = &m_tree.link(*at, key, folded);
            ++made;
        }
        at = next;  // a value too: the lines that follow then belong to it
        m_isOneToOne = m_isOneToOne && m_tree.hasLine(*at) && at->isKey();
    }
    const bool hasName = at != &m_tree.root();
    m_pCurrent = hasName ? at : nullptr;
    m_isOneToOne = m_isOneToOne && hasName && made <= 1;
    if (hasName && made == 0) {
        useKeyLine(*at, line);
    }
    return REGLIB_OK;
}

int CMerge::valueLine(std::string_view line) {
    CValueLine parts;
    const int result = parseValueLine(line, parts);
    if (result < 0) {
        return result;
    }
    m_isOneToOne = m_isOneToOne && m_pCurrent->isKey();
    const CFoldedName folded(parts.name);
    CKeyOrValue* const old = m_tree.findChild(*m_pCurrent, folded);
    if (old && !old->isKey() && !m_tree.hasChildren(*old)) {
        // Nothing can tell it from a new node, and a process that reads a million foreign changes
        // does not grow.
        m_isOneToOne = m_isOneToOne && !isOfThisText(*old);
        m_tree.useLine(*old, line, parts.name, parts.type);
        return REGLIB_OK;
    }
    CTree::CNewNode value(m_tree);
    m_tree.useLine(*value, line, parts.name, parts.type);
    if (old) {
        m_isOneToOne = false;
        m_tree.displaceBy(*old, value, folded);
    } else {
        m_tree.link(*m_pCurrent, value, folded);
    }
    return REGLIB_OK;
}

}  // namespace VQRegLib
