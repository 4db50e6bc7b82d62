// The memory behind all lines, and their order.
//
// A store of a hundred thousand values has four megabytes of text. Kept as a string per value it would be
// three times that, and every export a walk over all of them. Kept as it was read, it costs what the file
// costs, and exports after the first write it as it is.
//
// What makes that work with changes is the list of pieces. At first there is one: the whole block. A line
// that changes its length is written to another block, and the list has three pieces then: what was before
// it, the line, what comes after it. A write takes pieces as they are (writev), a comparison runs over
// them, and only the finding of a place is linear in their number; so there is a limit to it, and beyond
// that the text counts as unknown and is made anew at the next export.
//
// Pieces end at the ends of lines. Each line is followed in memory by its line feed, and it never needs
// to be added anywhere.
#include "RegLib/tree/TreeText.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <utility>

namespace VQRegLib {

namespace {

// A longer list costs more to search than the text to be made anew, spread over so many changes.
constexpr std::size_t kMostPieces = 500;

constexpr std::size_t kSmallestBlock = 512;
constexpr std::size_t kLargestBlock = 64UL * 1024;

std::string_view withEnd(std::string_view line) {
    return line.data() && !line.empty() ? std::string_view(line.data(), line.size() + 1) : line;
}

}  // namespace

char* CTreeText::addBlock(std::size_t size) {
    m_blocks.push_back({CLargeMemory(size), size});
    return m_blocks.back().memory.get();
}

const char* CTreeText::keep(std::string_view line) {
    const std::size_t size = line.size() + 1;
    if (m_blocks.empty() || m_blocks.back().memory.size() - m_blocks.back().used < size) {
        const std::size_t usual = std::clamp(m_keptSize, kSmallestBlock, kLargestBlock);
        addBlock(std::max(usual, size));
        m_blocks.back().used = 0;
    }
    CBlock& block = m_blocks.back();
    char* const at = block.memory.get() + block.used;
    std::memcpy(at, line.data(), line.size());
    at[line.size()] = '\n';
    block.used += size;
    m_keptSize += size;
    return at;
}

void CTreeText::dropBlocksBefore(std::size_t count) {
    m_blocks.erase(m_blocks.begin(), m_blocks.begin() + static_cast<std::ptrdiff_t>(count));
}

void CTreeText::forget() {
    m_isKnown = false;
    m_pieces.clear();
}

void CTreeText::setPieces(std::vector<std::string_view> pieces) {
    std::erase_if(pieces, [](std::string_view piece) { return piece.empty(); });
    m_pieces = std::move(pieces);
    m_isKnown = true;
}

bool CTreeText::isInBlocksFrom(std::size_t first, const char* at) const {
    constexpr std::less<const char*> isBelow;
    for (std::size_t number = first; number < m_blocks.size(); ++number) {
        const CBlock& block = m_blocks[number];
        if (!isBelow(at, block.memory.get()) &&
            isBelow(at, block.memory.get() + block.memory.size())) {
            return true;
        }
    }
    return false;
}

CTreeText::CPlace CTreeText::placeOf(const char* at) const {
    constexpr std::less<const char*> isBelow;
    for (std::size_t number = 0; number < m_pieces.size(); ++number) {
        const std::string_view piece = m_pieces[number];
        if (!isBelow(at, piece.data()) && isBelow(at, piece.data() + piece.size())) {
            return {number, static_cast<std::size_t>(at - piece.data())};
        }
    }
    return {m_pieces.size(), 0};
}

CTreeText::CPlace CTreeText::advanced(CPlace place, std::size_t size) const {
    place.offset += size;
    while (!isEnd(place) && place.offset >= m_pieces[place.piece].size()) {
        place.offset -= m_pieces[place.piece].size();
        ++place.piece;
    }
    return place;
}

void CTreeText::splice(CPlace begin, CPlace end, std::string_view lines) noexcept try {
    std::string_view parts[3];
    std::size_t count = 0;
    if (begin.offset > 0) {
        parts[count++] = m_pieces[begin.piece].substr(0, begin.offset);
    }
    if (!lines.empty()) {
        parts[count++] = lines;
    }
    if (end.offset > 0) {
        parts[count++] = from(end);
    }
    const auto first = m_pieces.begin() + static_cast<std::ptrdiff_t>(begin.piece);
    const auto last =
        m_pieces.begin() + static_cast<std::ptrdiff_t>(end.piece + (end.offset > 0 ? 1 : 0));
    m_pieces.insert(m_pieces.erase(first, last), parts, parts + count);
    if (m_pieces.size() > kMostPieces) {
        forget();
    }
} catch (const std::bad_alloc&) {
    forget();
}

void CTreeText::replace(std::string_view line, std::string_view by) noexcept {
    if (!m_isKnown) {
        return;
    }
    const CPlace place = placeOf(line.data());
    if (isEnd(place)) {
        forget();
    } else {
        splice(place, advanced(place, line.size() + 1), withEnd(by));
    }
}

void CTreeText::insertAfter(std::string_view line, std::string_view added) noexcept {
    if (!m_isKnown) {
        return;
    }
    const CPlace place = placeOf(line.data());
    if (isEnd(place)) {
        forget();
    } else {
        const CPlace after = advanced(place, line.size() + 1);
        splice(after, after, withEnd(added));
    }
}

}  // namespace VQRegLib
