// What is found in a text: faults and oddities, with their places.
#ifndef TOOLS_VQREG_TEXT_FINDINGS_H
#define TOOLS_VQREG_TEXT_FINDINGS_H

#include <string>
#include <vector>

#include "tools/vqreg/text/TextLines.h"

namespace vqreg {

struct Finding {
    std::size_t line = 0;    // from 1
    std::size_t column = 0;  // from 1, in bytes
    bool isError = true;  // the library refuses the file; otherwise it reads something unexpected
    std::string what;     // what is wrong
    std::string mend;     // how to mend it
    enum class eKind {
        eOther,
        eMissingParent,  // means nothing in a text that is put into a store
        eTruncated       // the library reads less than the line has
    } kind = eKind::eOther;
};

// "FILE:LINE:COL: error: what is wrong; how to mend it" (or "warning:").
std::string format(const std::string& file, const Finding& finding);

// Of a configuration file that is read piece by piece.
class Findings {
public:
    void error(const Piece& piece, const Fault& fault);
    void warning(const Piece& piece, const Fault& fault,
                 Finding::eKind kind = Finding::eKind::eOther);

    // A piece that is not a line of its own, and one that ends before its last byte.
    void noteLongLine(const Piece& piece);
    void noteCut(const Piece& piece, eCut cut, std::size_t size);

    // The line says something that cannot be read.
    void lose(const Piece& piece);

    void sort();  // by lines and columns
    const std::vector<Finding>& all() const { return m_all; }
    const std::vector<std::size_t>& lostLines() const { return m_lostLines; }

private:
    void add(const Piece& piece, const Fault& fault, bool isError,
             Finding::eKind kind = Finding::eKind::eOther);

    bool m_hasCarriageReturns = false;
    std::size_t m_longLine = 0;  // the last line that was cut, and the index of its finding
    std::size_t m_longFinding = 0;
    std::vector<Finding> m_all;
    std::vector<std::size_t> m_lostLines;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_FINDINGS_H
