// What each line of a text does to a tree that the text is merged into; Merge.cpp tells of the whole.
#include <algorithm>
#include <cstdint>

#include "RegLib/base/Folding.h"
#include "RegLib/text/LineFormat.h"
#include "RegLib/tree/Merge.h"

namespace VQRegLib {

namespace {

// With how many bytes two texts begin alike.
std::size_t sizeOfSame(std::string_view one, std::string_view other) {
    const std::size_t size = std::min(one.size(), other.size());
    std::size_t at = 0;
    while (at + 8 <= size &&
           loadWord<std::uint64_t>(one.data() + at) == loadWord<std::uint64_t>(other.data() + at)) {
        at += 8;
    }
    while (at < size && one[at] == other[at]) {
        ++at;
    }
    return at;
}

}  // namespace

int CMerge::line(std::string_view line) {
    if (!line.empty() && line.front() == '[') {
        return keyLine(line);
    }
    return m_current ? valueLine(line) : REGLIB_E_BAD_FORMAT;
}

bool CMerge::isOfThisText(const CKeyOrValue& of) const {
    return m_tree.m_text.isInBlocksFrom(m_firstBlock, of.m_line);
}

// An existing key keeps the line that it was made with.
void CMerge::useKeyLine(CKeyOrValue& key, std::string_view line) {
    m_isOneToOne = m_isOneToOne && key.line() == line && !isOfThisText(key);
    if (m_isOneToOne) {
        key.m_line = line.data();
    }
}

// Finds or makes one. A new one has the whole line, also what follows the bracket.
CKeyOrValue& CMerge::keyBelow(CKeyOrValue& parent, std::string_view name, std::string_view line,
                              int& made) {
    const CHashedName hashed(name);
    m_tree.m_index.expect(CNameIndex::hashOf(parent, hashed.hash()));
    const bool isLast = m_tree.isBehindAll(parent, hashed);
    CKeyOrValue* const old = isLast ? nullptr : m_tree.findChild(parent, hashed);
    if (old) {
        return *old;
    }
    ++made;
    CTree::CNewNode key(m_tree);
    key->m_iIsKey = 1;
    m_tree.nameInLine(*key, line, name);
    return isLast ? m_tree.linkAt(CTree::kBehindAll, parent, key, hashed)
                  : m_tree.link(parent, key, hashed);
}

// The names with which this path and that of the last key line begin lead to the same keys: the lines in
// between have changed nothing but what is below the last of these. Returns the rest of the path.
std::string_view CMerge::skipKnownLevels(std::string_view path, CKeyOrValue*& at) {
    const std::size_t same = sizeOfSame(path, m_path);
    const auto isSame = [&](const CLevel& level) {
        return level.end <= same && level.end < path.size() && path[level.end] == '/';
    };
    while (!m_levels.empty() && !isSame(m_levels.back())) {
        m_levels.pop_back();
    }
    if (m_levels.empty()) {
        return path;
    }
    at = m_levels.back().key;
    return path.substr(m_levels.back().end + 1);
}

int CMerge::keyLine(std::string_view line) {
    m_current = nullptr;
    std::string_view path;
    const int result = parseKeyLine(line, path);
    if (result < 0) {
        return result;
    }
    CKeyOrValue* at = &m_tree.root();
    int made = 0;
    std::string_view rest = skipKnownLevels(path, at);
    for (std::string_view name; nextKeyLineName(rest, name);) {
        at = &keyBelow(*at, name, line,
                       made);  // a value too: the lines that follow then belong to it
        m_isOneToOne = m_isOneToOne && m_tree.hasLine(*at) && at->isKey();
        m_levels.push_back({static_cast<std::size_t>(name.data() - path.data()) + name.size(), at});
    }
    m_path = path;
    const bool hasName = at != &m_tree.root();
    m_current = hasName ? at : nullptr;
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
    m_isOneToOne = m_isOneToOne && m_current->isKey();
    const CHashedName hashed(parts.name);
    const bool isLast = m_tree.isBehindAll(*m_current, hashed);
    CKeyOrValue* const old = isLast ? nullptr : m_tree.findChild(*m_current, hashed);
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
        m_tree.displaceBy(*old, value, hashed);
    } else if (isLast) {
        m_tree.linkAt(CTree::kBehindAll, *m_current, value, hashed);
    } else {
        m_tree.link(*m_current, value, hashed);
    }
    return REGLIB_OK;
}

}  // namespace VQRegLib
