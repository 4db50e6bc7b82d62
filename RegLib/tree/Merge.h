// Merges a text into a tree.
#ifndef REGLIB_TREE_MERGE_H
#define REGLIB_TREE_MERGE_H

#include <string_view>
#include <vector>

#include "RegLib/tree/TextSource.h"
#include "RegLib/tree/Tree.h"

namespace VQRegLib {

// What the text has comes into the tree; what it lacks stays. The lines before a bad one have been
// merged when the merge fails.
[[nodiscard]] CMergeResult mergeText(CTree& tree, CTextSource& source);

// Line by line. Values and new keys point to their lines afterwards: the text becomes the tree's.
class CMerge {
public:
    explicit CMerge(CTree& tree) : m_tree(tree) {}

    [[nodiscard]] CMergeResult run(CTextSource& source);

private:
    [[nodiscard]] int blocks(CTextSource& source, CMergeResult& result);
    std::string_view readBlock(CTextSource& source, std::string_view begun, bool& isAtEnd);
    void expectNodesOf(std::string_view text);
    [[nodiscard]] int lines(std::string_view text, CTextSource& source, CMergeResult& result);
    [[nodiscard]] int line(std::string_view line);
    [[nodiscard]] int keyLine(std::string_view line);
    [[nodiscard]] int valueLine(std::string_view line);
    std::string_view skipKnownLevels(std::string_view path, CKeyOrValue*& at);
    CKeyOrValue& keyBelow(CKeyOrValue& parent, std::string_view name, std::string_view line,
                          int& made);
    void useKeyLine(CKeyOrValue& key, std::string_view line);
    bool isOfThisText(const CKeyOrValue& of) const;

    CTree& m_tree;
    std::size_t m_firstBlock = 0;            // of this text
    std::size_t m_read = 0;                  // bytes
    std::vector<std::string_view> m_blocks;  // the text
    CKeyOrValue* m_current = nullptr;

    // Of the last key line: its path, and where in it each name ends, with the key that it stands for.
    struct CLevel {
        std::size_t end;
        CKeyOrValue* key;
    };
    std::string_view m_path;
    std::vector<CLevel> m_levels;

    // Each line so far has been one node's, and has made it what it is. Where that holds for a whole
    // text, a later one can be compared with it line by line.
    bool m_isOneToOne = true;
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_MERGE_H
