// How a text comes into a tree: line by line, as it always has.
//
// A merge adds. What the text has comes into the tree, what it lacks stays there: a value that another
// process has deleted is still found by this one until it starts anew. That is kept on purpose. It follows
// from a tree that has no idea which line it got when, programs have been written against it, and the
// next export of the process that still has the value brings it back into the file.
//
// A line that begins with "[" is a key line. Its path is walked from the root; keys that are missing on
// the way are made, and each of them gets this whole line as its own, which is why files should have
// parents first. A key that exists keeps the line with which it was made, and so its spelling. All other
// lines are values of the last key line's key. The first line that is neither ends the merge: what came
// before it stays in the tree, and the code goes to every caller until somebody mends the file.
//
// The memory of the text becomes the tree's. It is read into blocks of at most 16 MB, each line's node is
// pointed into them, and at the end the blocks of the text before are dropped. Nodes that the new text
// does not mention still point there, so their lines are copied out first (keepLinesOutside).
//
// Files are nearly always what this library wrote: in order, without a name twice, each line one node's.
// m_isOneToOne watches whether each line is one node's. When it is to the end, the text that was read can
// be compared with the next one line by line (Step.cpp); an export makes a text of its own first, since
// nobody has looked at the order. When it is not (an odd line, a CR, a value below a value), nothing is
// wrong but that short cut.
//
// For such files more things are cheap. What comes after all of its siblings needs no look-up, and values
// that do are taken several at a time (PlainValues.cpp). A path is walked from where it leaves that of the
// key line before it. How many nodes there will be is guessed from a few places of the text, so that index
// and nodes get their memory once.
#include "RegLib/tree/Merge.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <new>
#include <utility>

#include "RegLib/text/LineSplitter.h"
#include "RegLib/tree/PlainValues.h"
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

namespace {

// Of one block of a text. Reading ends with the first line that is wrong, so a file that is anything
// else takes no more memory than this, whatever its size.
constexpr std::size_t kLargestBlock = 16UL * 1024 * 1024;

// How much of a block is whole lines. A line that is longer than any may be comes in pieces anyway.
std::size_t wholeLines(std::string_view block) {
    const std::size_t end = block.rfind('\n') + 1;
    return end != 0 ? end : block.size() / kLongestPiece * kLongestPiece;
}

}  // namespace

// With one byte to spare, so that a full block never tells the end of the text.
std::string_view CMerge::readBlock(CTextSource& source, std::string_view begun, bool& isAtEnd) {
    const std::size_t size = source.size();
    const std::size_t left = size > m_read ? size - m_read : 0;
    const std::size_t room = begun.size() + std::min(left, kLargestBlock) + 1;
    char* const block = m_tree.m_text.addBlock(room);
    begun.copy(block, begun.size());
    const std::size_t wanted = room - begun.size();
    const std::size_t got = source.read(block + begun.size(), wanted);
    m_read += got;
    isAtEnd = got < wanted;
    return {block, begun.size() + got};
}

int CMerge::blocks(CTextSource& source, CMergeResult& result) {
    std::string_view rest;
    for (bool isAtEnd = false; !isAtEnd;) {
        const std::string_view block = readBlock(source, rest, isAtEnd);
        result.readError = source.error();
        // After a read error the beginning of a line is not trusted.
        const bool isLast = isAtEnd && result.readError == 0;
        const std::string_view whole = isLast ? block : block.substr(0, wholeLines(block));
        m_isOneToOne = m_isOneToOne && result.readError == 0 && whole.ends_with('\n') &&
                       whole.find('\0') == std::string_view::npos &&
                       whole.find('\r') == std::string_view::npos;
        if (m_blocks.empty()) {
            expectNodesOf(whole);
        }
        m_blocks.push_back(whole);
        const int code = lines(whole, source, result);
        if (code < 0 && code != REGLIB_E_END_OF_FILE) {
            return code;
        }
        rest = block.substr(whole.size());
    }
    return REGLIB_E_END_OF_FILE;
}

CMergeResult CMerge::run(CTextSource& source) {
    CTreeText& treeText = m_tree.m_text;
    treeText.forget();
    m_tree.m_isOrdered = m_tree.m_isFileText = false;
    // A merge that ends half-way for want of memory leaves keys that no line tells of.
    const bool wasFaithful = std::exchange(m_tree.m_isFaithful, false);
    m_firstBlock = treeText.blocks();
    CMergeResult result;
    result.isEmpty = true;
    result.code = blocks(source, result);
    m_isOneToOne = m_isOneToOne && result.code == REGLIB_E_END_OF_FILE;
    m_tree.m_isFaithful = wasFaithful && m_isOneToOne;
    try {
        treeText.setPieces(std::move(m_blocks));
        m_tree.m_isFileText = m_isOneToOne;
        m_tree.keepLinesOutside(m_firstBlock);
        treeText.dropBlocksBefore(m_firstBlock);
    } catch (const std::bad_alloc&) {
        // Then the old blocks stay until the next time.
    }
    return result;
}

// Makes room for about as many nodes as a text has beyond those of the tree, from its lines at a few
// places; it does without where that is too much to ask.
void CMerge::expectNodesOf(std::string_view text) try {
    constexpr std::size_t kSample = 4096;
    constexpr std::size_t kShortLine = 16;
    std::uint64_t lines = 0;
    std::uint64_t looked = 0;
    for (std::size_t quarter = 0; quarter < 4; ++quarter) {
        const std::string_view sample = text.substr(text.size() / 4 * quarter, kSample);
        lines += static_cast<std::uint64_t>(std::count(sample.begin(), sample.end(), '\n'));
        looked += sample.size();
    }
    const std::size_t nodes = looked == 0
                                  ? 0
                                  : std::min(static_cast<std::size_t>(lines * text.size() / looked),
                                             text.size() / kShortLine);
    if (nodes > m_tree.size()) {
        m_tree.m_index.reserve(nodes - m_tree.size());
    }
    // A tree that has been read before grows by what it needs: a guess that is wrong each time adds up.
    if (nodes / 2 > m_tree.size()) {
        m_tree.m_nodes.expect(nodes - m_tree.size());
    }
} catch (const std::bad_alloc&) {
    return;
}

int CMerge::lines(std::string_view text, CTextSource& source, CMergeResult& result) {
    const bool isTold = source.wantsLines();
    CPlainValues plain(m_tree);
    while (!text.empty()) {
        if (!isTold && m_isOneToOne && m_current && plain.take(*m_current, text)) {
            result.isEmpty = false;
            result.hasValues = true;
            continue;
        }
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

}  // namespace VQRegLib
