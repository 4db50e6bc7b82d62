// Compares a new text with the one that a tree knows.
#ifndef REGLIB_TREE_STEP_H
#define REGLIB_TREE_STEP_H

#include <string_view>

#include "RegLib/tree/TextSource.h"
#include "RegLib/tree/Tree.h"

namespace VQRegLib {

// When another process has changed a value, all other lines of the file are what they were: the new
// text is compared with the old one, block by block, and only what differs is looked at.
//
// That gives what a merge of the whole would give because each line of the old text is one node's
// (CTree::m_isFileText): to merge it again would change nothing. Of the lines that differ, these are
// understood: another line for the same value; lines of new values and new keys; lines that have
// gone, whose nodes stay. With anything else the two texts are out of step, and the new one is merged
// as a whole; what has been done by then is what that does too.
class CStep {
public:
    explicit CStep(CTree& tree) : m_tree(tree), m_text(tree.m_text) {}

    bool canRun() const;

    // False when the texts are out of step.
    [[nodiscard]] bool run(CTextSource& source, CMergeResult& result);

private:
    // What has been made of a line that differs.
    enum eOutcome {
        eTaken,    // it is in the tree, and in the text that the tree knows
        eFurther,  // the old text has been left out up to where the line is
        eOutOfStep
    };

    [[nodiscard]] bool blocks(CTextSource& source);
    [[nodiscard]] bool compare(std::string_view block);
    std::size_t equalSize(std::string_view block) const;
    [[nodiscard]] eOutcome differ(std::string_view line);
    [[nodiscard]] eOutcome keyLine(std::string_view line);
    [[nodiscard]] eOutcome valueLine(std::string_view line);
    [[nodiscard]] eOutcome replace(CKeyOrValue& value, std::string_view line, std::string_view name,
                                   CRegLib::eDataType type);
    [[nodiscard]] eOutcome gain(const CKeyOrValue& added);
    [[nodiscard]] eOutcome skipTo(CTreeText::CPlace place);
    CKeyOrValue* currentKey() const;
    bool isAtKeyLine() const;

    CTree& m_tree;
    CTreeText& m_text;
    CTreeText::CPlace m_place;  // in the old text; up to here the two are the same
    int m_differences = 0;
    bool m_hasValues = false;
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_STEP_H
