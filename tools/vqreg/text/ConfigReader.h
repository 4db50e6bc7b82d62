// Reads the text of a configuration file into a tree that has all that the library's own tree has,
// and goes on behind a bad line to find the other faults.
#ifndef TOOLS_VQREG_TEXT_CONFIGREADER_H
#define TOOLS_VQREG_TEXT_CONFIGREADER_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/vqreg/text/Findings.h"
#include "tools/vqreg/text/LineNode.h"
#include "tools/vqreg/text/TextLines.h"

namespace vqreg {

class ConfigReader {
public:
    ConfigReader();
    void read(std::string_view text);

    // In the order of lines and columns.
    const std::vector<Finding>& findings() const { return m_findings.all(); }
    bool isReadable() const { return !m_hasError; }

    // What the library has in memory: everything, or what stands before the first error.
    Key takeTop();

    // All that can be read at all, whatever errors there are, and the lines that cannot.
    Key allThatCanBeRead() const { return m_top.model(); }
    const std::vector<std::size_t>& lostLines() const { return m_findings.lostLines(); }

    // The text that the library writes with the next change. Nothing else shows its tree as
    // exactly: it keeps lines as they were read, odd ones too.
    std::string nextText() const { return m_top.text(); }

private:
    enum class eState { eBeforeKeys, eInKey, eAfterNoKey, eAfterBadKey };

    void readPiece(const Piece& piece);
    void readLine(const Piece& piece, std::string_view line);
    void readKeyLine(const Piece& piece, std::string_view line);
    void readValueLineOf(const Piece& piece, std::string_view line);
    void storeValue(const Piece& piece, std::string_view line, const ValueLine& parts);
    void walkPath(const Piece& piece, std::string_view line,
                  const std::vector<std::string_view>& names);
    void judgeNames(const Piece& piece, const std::vector<std::string_view>& names);
    void judgeReplaced(const Piece& piece, const ValueLine& parts, const LineNode& old);
    void error(const Piece& piece, const Fault& fault);
    LineNode m_top;
    Key m_readTop;  // as it was at the first error
    LineNode* m_current = nullptr;
    eState m_state = eState::eBeforeKeys;
    bool m_isInvisible = false;  // the current key is below a value
    bool m_hasError = false;
    Findings m_findings;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_CONFIGREADER_H
