// Most of a file is lines like `"Port"=dword:00001F90`, in the order in which the library writes them, and
// the reading of a large file is little else than these. Each step here is one that CMerge and LineFormat
// take too, put together for the one case in which nothing has to be looked up: what is not exactly that
// is left to them, at the first line that is different.
//
// Nodes are made in memory that the pool has already, behind its last one, and do not belong to it before
// everything that may fail has been done. So there is nothing to be undone.
#include "RegLib/tree/PlainValues.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "RegLib/base/Folding.h"
#include "RegLib/text/LineSplitter.h"

namespace VQRegLib {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

constexpr std::uint64_t wordOf(const char (&text)[kWord + 1]) {
    std::uint64_t word = 0;
    for (std::size_t at = 0; at < kWord; ++at) {
        word |= std::uint64_t{static_cast<unsigned char>(text[at])} << (8 * at);
    }
    return word;
}

constexpr std::uint64_t firstBytes(std::uint64_t word, std::size_t count) {
    return count >= kWord ? word : word & ((std::uint64_t{1} << (8 * count)) - 1);
}

// Where a line's name ends: the first quote behind the one at its beginning, with a word behind it. 0
// when it has none.
std::size_t endOfName(std::string_view line) {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    for (std::size_t at = 1; at + kWord <= line.size(); at += kWord) {
        const std::uint64_t word = loadWord<std::uint64_t>(line.data() + at) ^ (kOnes * '"');
        // The lowest of these bits is that of the first byte which is zero.
        const std::uint64_t zeroes = (word - kOnes) & ~word & (kOnes * 0x80);
        if (zeroes != 0) {
            const std::size_t end = at + static_cast<std::size_t>(std::countr_zero(zeroes)) / 8;
            return end + 1 + kWord <= line.size() ? end : 0;
        }
    }
    return 0;
}

// By the word behind the quote.
CRegLib::eDataType typeBehind(const char* quote) {
    const auto word = loadWord<std::uint64_t>(quote + 1);
    if (firstBytes(word, 7) == firstBytes(wordOf("=dword: "), 7)) {
        return CRegLib::eDword;
    }
    if (word == wordOf("=string:")) {
        return CRegLib::eString;
    }
    return word == wordOf("=binary:") ? CRegLib::eBinary : CRegLib::eNone;
}

std::uint64_t orderOf(std::uint64_t folded) {
    return __builtin_bswap64(folded);
}

}  // namespace

// False when the key's next values may have to be looked for.
bool CPlainValues::findRoom(const CKeyOrValue& key) {
    const CTree::CChildren& children = m_tree.m_children[key.m_children];
    m_fresh = m_tree.m_nodes.fresh();
    m_most = std::min({m_fresh.count, kMost, children.values.roomForRun()});
    if (!children.keys.empty() || m_most == 0) {
        return false;
    }
    m_hasLast = !children.values.empty();
    if (m_hasLast) {
        const std::string_view name = m_tree.nameOf(m_tree.node(children.values.back()));
        const std::size_t size = std::min(name.size(), kWord);
        std::uint64_t begin = 0;
        std::memcpy(&begin, name.data(), size);
        m_last = {name, orderOf(foldedWord(begin))};
    }
    return true;
}

// Makes the nodes of the lines; how many.
std::size_t CPlainValues::collect(CKeyOrValue& key, std::string_view& text) {
    std::size_t count = 0;
    while (count < m_most && !text.empty() && text.front() == '"') {
        const void* const feed =
            std::memchr(text.data(), '\n', std::min(text.size(), kLongestPiece));
        if (!feed) {
            break;
        }
        const std::string_view line(
            text.data(), static_cast<std::size_t>(static_cast<const char*>(feed) - text.data()));
        const std::size_t quote = endOfName(line);
        const CRegLib::eDataType type =
            quote != 0 ? typeBehind(line.data() + quote) : CRegLib::eNone;
        if (type == CRegLib::eNone) {
            break;
        }
        const std::string_view name = line.substr(1, quote - 1);
        const std::uint64_t begin =
            orderOf(foldedWord(firstBytes(loadWord<std::uint64_t>(name.data()), name.size())));
        const bool isBehind = !m_hasLast || m_last.begin < begin ||
                              (m_last.begin == begin && compareFolded(m_last.name, name) < 0);
        if (!isBehind) {
            break;
        }
        m_last = {name, begin};
        m_hasLast = true;
        const std::uint32_t hash = CNameIndex::hashOf(key, CHashedName(name).hash());
        m_hashes[count] = hash;
        m_tree.m_index.expect(hash);
        auto* const made = new (m_fresh.first + count) CKeyOrValue;
        made->m_number = m_fresh.number + static_cast<NodeNumber>(count);
        made->m_parent = key.m_number;
        made->m_eDataType = static_cast<std::uint8_t>(type);
        CTree::nameWithin(*made, line, name);
        text.remove_prefix(line.size() + 1);
        ++count;
    }
    return count;
}

// False when there is no memory: whoever merges line by line finds out how far it goes.
bool CPlainValues::makeRoom(CKeyOrValue& key, std::size_t count) try {
    if (key.m_children == 0) {
        m_tree.giveLists(key);
    }
    m_tree.m_index.reserve(count);
    return m_tree.siblings(key, false).makeRoom(count);
} catch (const std::bad_alloc&) {
    return false;
}

bool CPlainValues::take(CKeyOrValue& key, std::string_view& text) {
    std::string_view rest = text;
    const bool isValue = !text.empty() && text.front() == '"';
    const std::size_t count = isValue && findRoom(key) ? collect(key, rest) : 0;
    if (count == 0 || !makeRoom(key, count)) {
        return false;
    }
    for (std::size_t at = 0; at < count; ++at) {
        m_tree.m_index.add(m_hashes[at], m_fresh.number + static_cast<NodeNumber>(at));
    }
    m_tree.siblings(key, false).appendRun(m_fresh.number, count);
    m_tree.m_nodes.keep(count);
    text = rest;
    return true;
}

}  // namespace VQRegLib
