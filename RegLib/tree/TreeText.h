// The text of a tree: the memory in which the lines of all nodes lie, and their order in the file.
#ifndef REGLIB_TREE_TREETEXT_H
#define REGLIB_TREE_TREETEXT_H

#include <cstddef>
#include <string_view>
#include <vector>

#include "portable/LargeMemory.h"

namespace VQRegLib {

// A text that was read, or is about to be written, is one block of memory, and the nodes point to
// their lines in it. A line that changes its length goes to another block. What the whole text is now
// is known as a list of pieces, which lie in order and end with their lines: nothing of it has to be
// copied to be written or compared. The list is given up when it would get too long, or when somebody
// adds to it at a place that takes too much finding; the tree then makes the text anew.
class CTreeText {
public:
    // Memory for so many bytes, valid until it is dropped. Throws std::bad_alloc.
    char* addBlock(std::size_t size);

    // A copy of a line, with its end. Throws std::bad_alloc.
    const char* keep(std::string_view line);

    // The blocks so far, and letting go of them when no node points there any more.
    std::size_t blocks() const { return m_blocks.size(); }
    void dropBlocksBefore(std::size_t count);

    // A place in one of the blocks from a number on.
    bool isInBlocksFrom(std::size_t first, const char* at) const;

    // What keep() has taken since the last settle(): once the lines change again, it is waste.
    std::size_t keptSize() const { return m_keptSize; }
    void settle() { m_keptSize = 0; }

    bool isKnown() const { return m_isKnown; }
    const std::vector<std::string_view>& pieces() const { return m_pieces; }

    // The whole text is this. Throws std::bad_alloc, with the text unknown.
    void setPieces(std::vector<std::string_view> pieces);
    void forget();

    // A place in the pieces; the end is one behind the last piece.
    struct CPlace {
        std::size_t piece = 0;
        std::size_t offset = 0;
    };
    CPlace placeOf(const char* at) const;  // the end when it is in none of them
    CPlace advanced(CPlace place, std::size_t size) const;
    bool isEnd(CPlace place) const { return place.piece >= m_pieces.size(); }

    // From a place to the end of its piece.
    std::string_view from(CPlace place) const { return m_pieces[place.piece].substr(place.offset); }

    // Puts lines, with their ends, in the place of others, or leaves the text unknown.
    void splice(CPlace begin, CPlace end, std::string_view lines) noexcept;

    // The same for one line; lines are given without their ends, which follow them in memory.
    void replace(std::string_view line, std::string_view by) noexcept;
    void insertAfter(std::string_view line, std::string_view added) noexcept;
    void erase(std::string_view line) noexcept { replace(line, {}); }

private:
    struct CBlock {
        CLargeMemory memory;
        std::size_t used;
    };

    std::vector<CBlock> m_blocks;
    std::size_t m_keptSize = 0;
    std::vector<std::string_view> m_pieces;
    bool m_isKnown = false;
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_TREETEXT_H
