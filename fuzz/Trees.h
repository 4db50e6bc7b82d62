// What the targets that read texts into trees share.
#ifndef FUZZ_TREES_H
#define FUZZ_TREES_H

#include <string>
#include <string_view>

#include "RegLib/tree/Merge.h"
#include "fuzz/Support.h"
#include "unit/tree/PlainTree.h"
#include "unit/tree/TextOf.h"

namespace vqfuzz {

using vqtest::PlainNode;
using vqtest::PlainTree;

// Reads a text into a tree and into the plain one, which must come out alike. True when it is well formed.
inline bool readInto(VQRegLib::CTree& tree, PlainTree& plain, std::string_view text) {
    vqtest::TextOf source{std::string(text)};
    const VQRegLib::CMergeResult result = VQRegLib::mergeText(tree, source);
    const vqtest::PlainOutcome expected = plain.merge(text);
    require(result.code == expected.code, "a text is well formed or not");
    require(result.isEmpty == expected.isEmpty && result.readError == 0,
            "a text has lines or none");
    return result.code == VQRegLib::REGLIB_E_END_OF_FILE;
}

inline void requireSame(VQRegLib::CTree& tree, PlainTree& plain) {
    require(vqtest::dumpOf(tree) == plain.dump(plain.root()), "a tree is what the lines say");
    require(vqtest::textOf(tree) == plain.text(), "the text of a tree is its lines in order");
}

// The names that lead to a node, each in lower case and with a slash before it.
inline std::string pathOf(const PlainNode& node) {
    return node.parent ? pathOf(*node.parent) + '/' + vqtest::inLowerCase(node.name) : "";
}

inline bool isOneLine(std::string_view line) {
    return line.size() <= 2047 &&
           line.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

// Whether the line of a key leads to it, and to nothing else: as in the page on the file's format, under
// "Read and written once more".
inline bool isReadBack(const PlainNode& key) {
    const std::size_t end = key.line.find(']');
    if (!isOneLine(key.line) || key.name == "<root>" || end == std::string::npos) {
        return false;
    }
    std::string path = vqtest::inLowerCase(key.line.substr(1, end - 1));
    if (path.empty()) {
        return false;  // no name at all
    }
    if (path.back() == '/') {
        path.pop_back();  // a slash at the end adds no name
    }
    return '/' + path == pathOf(key);
}

// Whether the lines of all that is written are. Only a value that a program has set can have a line that
// is not read back as what it is.
inline bool isReadBack(PlainTree& plain) {
    for (const PlainNode* const node : plain.reachable()) {
        if (node->parent && !(node->isKey ? isReadBack(*node) : isOneLine(node->line))) {
            return false;
        }
    }
    return true;
}

// Exports, imports and exports: the text stays as it is where all lines are read back, and whether or not
// the second tree is the one that the lines say.
inline void checkExport(VQRegLib::CTree& tree, PlainTree& plain) {
    const std::string text = vqtest::textOf(tree);
    VQRegLib::CTree again;
    PlainTree plainAgain;
    const bool isWellFormed = readInto(again, plainAgain, text);
    requireSame(again, plainAgain);
    if (isReadBack(plain)) {
        require(isWellFormed, "what is written can be read");
        require(vqtest::textOf(again) == text, "the export of an import is what was imported");
        require(vqtest::dumpOf(again) == vqtest::dumpOf(tree), "and so is its tree");
    }
}

}  // namespace vqfuzz

#endif  // FUZZ_TREES_H
