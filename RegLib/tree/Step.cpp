// Reading again what is nearly the same.
//
// Ten processes share a store of a hundred thousand values, and one of them sets one. The other nine have
// to read the file: that is what the stamp tells them. But of four megabytes eight bytes are new. So the
// new text is read in blocks and compared with the known one, which is a list of pieces; both run in
// step, and as long as bytes are equal nothing is looked at.
//
// Where they differ there is a line in the new text, and it is one of these:
//
//  - A value that the tree has, at this place of the old text: its line is replaced, in place when it has
//    the same length.
//  - A value or a key that the old text has further on: the lines up to there have left the file. The old
//    text is shortened by them (skipTo); their nodes stay, because a merge would leave them too.
//  - A value or a key that the tree does not have, or has had from a file before: it goes in here.
//  - Anything else: a name twice, a key line that makes two keys, a value with the name of a key. Then
//    the two are out of step, the source is rewound, and the whole text is merged (Merge.cpp), which is
//    the truth that this short cut has to agree with. It may have done part of the work by then: merging
//    those lines again changes nothing.
//
// After so and so many differences it gives up as well: finding the place of each in the pieces costs, and
// a text that differs everywhere is merged faster than it is compared.
#include "RegLib/tree/Step.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>

#include "RegLib/base/Folding.h"
#include "RegLib/text/LineFormat.h"
#include "RegLib/text/LineSplitter.h"

namespace VQRegLib {

namespace {

constexpr std::size_t kBlockSize = 64UL * 1024;
constexpr std::size_t kStride = 256;

// With more of them, a merge of the whole text is not much dearer.
constexpr int kMostDifferences = 64;

bool isBefore(CTreeText::CPlace one, CTreeText::CPlace other) {
    return one.piece != other.piece ? one.piece < other.piece : one.offset < other.offset;
}

// So many bytes at the beginning of two texts are the same.
std::size_t equalBytes(const char* one, const char* other, std::size_t size) {
    std::size_t at = 0;
    while (at + kStride <= size && std::memcmp(one + at, other + at, kStride) == 0) {
        at += kStride;
    }
    for (; at + sizeof(std::uint64_t) <= size; at += sizeof(std::uint64_t)) {
        const std::uint64_t difference =
            loadWord<std::uint64_t>(one + at) ^ loadWord<std::uint64_t>(other + at);
        if (difference != 0) {
            return at + static_cast<std::size_t>(std::countr_zero(difference)) / 8;
        }
    }
    while (at < size && one[at] == other[at]) {
        ++at;
    }
    return at;
}

// Where the last key line of a text begins; npos when it has none.
std::size_t lastKeyLine(std::string_view text) {
    std::size_t end = text.size();
    while (end > 0) {
        const void* const bracket = ::memrchr(text.data(), '[', end);
        if (!bracket) {
            break;
        }
        end = static_cast<std::size_t>(static_cast<const char*>(bracket) - text.data());
        if (end == 0 || text[end - 1] == '\n') {
            return end;
        }
    }
    return std::string_view::npos;
}

bool isPlain(std::string_view line) {
    return !line.empty() && line.size() < kLongestPiece &&
           line.find('\r') == std::string_view::npos && line.find('\0') == std::string_view::npos;
}

}  // namespace

bool CStep::canRun() const {
    return m_tree.m_isFileText && m_text.isKnown() && !m_text.pieces().empty() &&
           !m_tree.isTextWasteful();
}

bool CStep::run(CTextSource& source, CMergeResult& result) {
    m_tree.m_isFileText = false;
    if (!blocks(source)) {
        return false;
    }
    result = {REGLIB_E_END_OF_FILE, source.error(), false, m_hasValues};
    if (result.readError != 0) {
        return true;  // what follows in the old text may be in the file, too
    }
    if (!m_text.isEnd(m_place)) {
        m_text.splice(m_place, {m_text.pieces().size(), 0}, {});
        m_tree.m_isOrdered = false;
    }
    m_tree.m_isFileText = m_text.isKnown();
    return true;
}

bool CStep::blocks(CTextSource& source) {
    const auto buffer = std::make_unique_for_overwrite<char[]>(kBlockSize);
    std::size_t used = 0;
    bool isEmpty = true;
    for (bool isAtEnd = false; !isAtEnd;) {
        const std::size_t wanted = kBlockSize - used;
        const std::size_t got = source.read(buffer.get() + used, wanted);
        isAtEnd = got < wanted;
        used += got;
        const std::string_view read(buffer.get(), used);
        const std::size_t whole = read.rfind('\n') + 1;
        const bool isCut = whole < used && source.error() == 0;
        if ((isAtEnd && isCut) || (!isAtEnd && whole == 0) || !compare(read.substr(0, whole))) {
            return false;
        }
        isEmpty = isEmpty && whole == 0;
        used -= whole;
        std::memmove(buffer.get(), buffer.get() + whole, used);
    }
    return !isEmpty;
}

bool CStep::compare(std::string_view block) {
    while (!block.empty()) {
        const std::size_t size = equalSize(block);
        if (size > 0) {
            m_place = m_text.advanced(m_place, size);
            block.remove_prefix(size);
            continue;
        }
        const std::string_view line = block.substr(0, block.find('\n'));
        const eOutcome outcome = differ(line);
        if (outcome == eOutOfStep || !m_text.isKnown()) {
            return false;
        }
        block.remove_prefix(outcome == eTaken ? line.size() + 1 : 0);
    }
    return true;
}

// Of the block, how much is what comes next in the old text: whole lines, within one piece of it.
std::size_t CStep::equalSize(std::string_view block) const {
    if (m_text.isEnd(m_place)) {
        return 0;
    }
    const std::string_view old = m_text.from(m_place);
    const std::size_t most = std::min(block.size(), old.size());
    const std::size_t at = equalBytes(block.data(), old.data(), most);
    return at == most ? at : block.substr(0, at).rfind('\n') + 1;
}

CStep::eOutcome CStep::differ(std::string_view line) {
    if (++m_differences > kMostDifferences || !isPlain(line)) {
        return eOutOfStep;
    }
    return line.front() == '[' ? keyLine(line) : valueLine(line);
}

bool CStep::isAtKeyLine() const {
    return m_text.isEnd(m_place) || m_text.from(m_place).front() == '[';
}

// A key line that is new stands between the lines of two keys: what follows in the old text then still
// belongs to the same key as before.
CStep::eOutcome CStep::keyLine(std::string_view line) {
    std::string_view path;
    if (parseKeyLine(line, path) < 0 || path.size() + 2 != line.size()) {
        return eOutOfStep;
    }
    CKeyOrValue* at = &m_tree.root();
    std::string_view name;
    while (nextKeyLineName(path, name)) {
        const CHashedName hashed(name);
        CKeyOrValue* const next = m_tree.findChild(*at, hashed);
        if (next && (!next->isKey() || !m_tree.hasLine(*next))) {
            return eOutOfStep;  // what is below it is not written
        }
        if (next) {
            at = next;
            continue;
        }
        if (!path.empty() || !at->isKey() || name == kTreeRootName || !isAtKeyLine()) {
            return eOutOfStep;
        }
        const std::string_view kept(m_text.keep(line), line.size());
        CTree::CNewNode made(m_tree);
        made->m_iIsKey = 1;
        m_tree.nameInLine(
            *made, kept,
            kept.substr(static_cast<std::size_t>(name.data() - line.data()), name.size()));
        return gain(m_tree.link(*at, made, hashed));
    }
    if (!at->isKey() || at->line() != line) {
        return eOutOfStep;
    }
    const CTreeText::CPlace place = m_text.placeOf(at->m_line);
    if (!m_text.isEnd(place)) {
        return isBefore(m_place, place) ? skipTo(place) : eOutOfStep;
    }
    return isAtKeyLine() ? gain(*at) : eOutOfStep;  // back after a time without it
}

CStep::eOutcome CStep::valueLine(std::string_view line) {
    CValueLine parts;
    CKeyOrValue* const key = parseValueLine(line, parts) < 0 ? nullptr : currentKey();
    if (!key) {
        return eOutOfStep;
    }
    const CHashedName hashed(parts.name);
    CKeyOrValue* const old = m_tree.findChild(*key, hashed);
    if (old) {
        return old->isKey() || m_tree.hasChildren(*old)
                   ? eOutOfStep
                   : replace(*old, line, parts.name, parts.type);
    }
    const std::string_view kept(m_text.keep(line), line.size());
    CTree::CNewNode made(m_tree);
    m_tree.useLine(
        *made, kept,
        kept.substr(static_cast<std::size_t>(parts.name.data() - line.data()), parts.name.size()),
        parts.type);
    m_hasValues = true;
    return gain(m_tree.link(*key, made, hashed));
}

CStep::eOutcome CStep::replace(CKeyOrValue& value, std::string_view line, std::string_view name,
                               CRegLib::eDataType type) {
    const CTreeText::CPlace place = m_text.placeOf(value.m_line);
    const bool isBack = m_text.isEnd(place);  // after a time in which the file did not have it
    if (isBefore(m_place, place) && !isBack) {
        return skipTo(place);
    }
    if (isBefore(place, m_place)) {
        return eOutOfStep;
    }
    const std::size_t nameAt = static_cast<std::size_t>(name.data() - line.data());
    std::string_view kept = value.line();
    if (kept.size() == line.size() && !isBack) {
        line.copy(const_cast<char*>(kept.data()), line.size());  // in the tree's own memory
    } else {
        const CTreeText::CPlace end = isBack ? m_place : m_text.advanced(m_place, kept.size() + 1);
        kept = {m_text.keep(line), line.size()};
        m_text.splice(m_place, end, {kept.data(), kept.size() + 1});
    }
    m_tree.useLine(value, kept, kept.substr(nameAt, name.size()), type);
    m_hasValues = true;
    if (m_text.isKnown()) {
        m_place = m_text.advanced(m_place, line.size() + 1);
    }
    return eTaken;
}

CStep::eOutcome CStep::gain(const CKeyOrValue& added) {
    m_tree.m_isFaithful = m_tree.m_isFaithful && m_tree.isReadBack(added);
    if (m_tree.m_isOrdered) {
        const CKeyOrValue* const before = m_tree.lineBefore(added);
        const CTreeText::CPlace place =
            before ? m_text.advanced(m_text.placeOf(before->m_line), before->m_lineSize + 1)
                   : CTreeText::CPlace{};
        m_tree.m_isOrdered =
            before && place.piece == m_place.piece && place.offset == m_place.offset;
    }
    m_text.splice(m_place, m_place, {added.m_line, added.m_lineSize + std::size_t{1}});
    if (m_text.isKnown()) {
        m_place = m_text.advanced(m_place, added.m_lineSize + std::size_t{1});
    }
    return eTaken;
}

// The lines up to there are no longer in the file. Their nodes stay.
CStep::eOutcome CStep::skipTo(CTreeText::CPlace place) {
    m_text.splice(m_place, place, {});
    m_tree.m_isOrdered = false;
    if (m_text.isKnown()) {
        m_place = m_text.advanced(m_place, 0);
    }
    return eFurther;
}

// That of the last key line before the place.
CKeyOrValue* CStep::currentKey() const {
    std::string_view before = m_text.isEnd(m_place)
                                  ? std::string_view()
                                  : m_text.pieces()[m_place.piece].substr(0, m_place.offset);
    for (std::size_t piece = m_place.piece;; before = m_text.pieces()[--piece]) {
        const std::size_t found = lastKeyLine(before);
        if (found != std::string_view::npos) {
            std::string_view path;
            const std::string_view rest = before.substr(found);
            // Of no key: the path is empty then, which is the root's.
            (void)parseKeyLine(rest.substr(0, rest.find('\n')), path);
            CKeyOrValue* at = &m_tree.root();
            for (std::string_view name; at && nextKeyLineName(path, name);) {
                at = m_tree.findChild(*at, name);
            }
            return at != &m_tree.root() ? at : nullptr;
        }
        if (piece == 0) {
            return nullptr;
        }
    }
}

}  // namespace VQRegLib
