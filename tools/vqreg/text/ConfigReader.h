// Reads the text of a configuration file into a tree that has all that the library's own tree has,
// and goes on behind a bad line to find the other faults.
#ifndef TOOLS_VQREG_TEXT_CONFIGREADER_H
#define TOOLS_VQREG_TEXT_CONFIGREADER_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/TextLines.h"

namespace vqreg {

class ConfigReader {
public:
    ConfigReader();
    void read(std::string_view text);

    // In the order of lines and columns.
    const std::vector<Finding>& findings() const { return m_findings; }
    bool isReadable() const { return !m_hasError; }

    // What the library has in memory: everything, or what stands before the first error.
    Key takeTop();

    // All that can be read at all, whatever errors there are, and the lines that cannot.
    Key allThatCanBeRead() const { return modelOf(m_top); }
    const std::vector<std::size_t>& lostLines() const { return m_lostLines; }

    // The text that the library writes with the next change. Nothing else shows its tree as
    // exactly: it keeps lines as they were read, odd ones too.
    std::string nextText() const;

private:
    // A key or a value; values can have children here, as they can in the library.
    struct Node {
        bool isKey = true;
        std::string name;
        std::string text;  // its line in the file
        std::size_t line = 0;
        Value value;
        std::map<std::string, Node> children;
    };

    enum class eState { eBeforeKeys, eInKey, eAfterNoKey, eAfterBadKey };

    void readPiece(const Piece& piece);
    void readLine(const Piece& piece, std::string_view line);
    void readKeyLine(const Piece& piece, std::string_view line);
    void readValueLineOf(const Piece& piece, std::string_view line);
    void storeValue(const Piece& piece, std::string_view line, const ValueLine& parts);
    void walkPath(const Piece& piece, std::string_view line,
                  const std::vector<std::string_view>& names);
    void judgeNames(const Piece& piece, const std::vector<std::string_view>& names);
    void judgeReplaced(const Piece& piece, const ValueLine& parts, const Node& old);
    void noteCut(const Piece& piece, eCut cut, std::size_t size);
    void noteLongLine(const Piece& piece);

    void error(const Piece& piece, const Fault& fault);
    void warning(const Piece& piece, const Fault& fault,
                 Finding::eKind kind = Finding::eKind::eOther);
    void add(const Piece& piece, const Fault& fault, bool isError,
             Finding::eKind kind = Finding::eKind::eOther);

    void lose(const Piece& piece);

    static Key modelOf(const Node& node);
    static void print(const Node& node, std::string& text);

    Node m_top;
    Key m_readTop;  // as it was at the first error
    Node* m_current = nullptr;
    eState m_state = eState::eBeforeKeys;
    bool m_isInvisible = false;  // the current key is below a value
    bool m_hasError = false;
    bool m_hasCarriageReturns = false;
    std::size_t m_longLine = 0;  // the last line that was cut, and the index of its finding
    std::size_t m_longFinding = 0;
    std::vector<Finding> m_findings;
    std::vector<std::size_t> m_lostLines;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_CONFIGREADER_H
