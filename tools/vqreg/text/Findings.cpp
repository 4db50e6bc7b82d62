#include "tools/vqreg/text/Findings.h"

#include <algorithm>
#include <tuple>

#include "RegLib/text/LineSplitter.h"

namespace vqreg {

std::string format(const std::string& file, const Finding& finding) {
    return file + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) +
           (finding.isError ? ": error: " : ": warning: ") + finding.what + "; " + finding.mend;
}

void Findings::noteCut(const Piece& piece, eCut cut, std::size_t size) {
    if (cut == eCut::eNul) {
        warning(piece, {size, "a NUL ends the line here: the rest of it is ignored", "remove it"},
                Finding::eKind::eTruncated);
    } else if (cut == eCut::eCarriageReturn) {
        warning(piece,
                {size, "a carriage return ends the line here: the rest of it is ignored",
                 "remove it, or make it a line end"},
                Finding::eKind::eTruncated);
    } else if (cut == eCut::eLineEnd && !m_hasCarriageReturns) {
        m_hasCarriageReturns = true;
        warning(piece, {size, "lines end in CR LF, and the next change writes LF",
                        "save the file with LF"});
    }
}

// A long line counts as an error when one of its pieces is; the pieces themselves are not reported.
void Findings::noteLongLine(const Piece& piece) {
    if (piece.offset > 0 || m_longLine == piece.line) {
        return;
    }
    m_longLine = piece.line;
    m_longFinding = m_all.size();
    const bool isCut = !piece.isLast;
    add(piece,
        {VQRegLib::kLongestPiece - (isCut ? 0 : 1),
         isCut ? "the line is too long: it is cut here, and the rest is read as a line of its own"
               : "the line is too long: with a line end it would be cut after its last byte",
         "keep lines within 2047 bytes"},
        false);
}

void Findings::error(const Piece& piece, const Fault& fault) {
    // What is wrong with a long key line is that it is long: its "]" may stand behind the cut.
    if (piece.offset > 0 || (m_longLine == piece.line && piece.bytes.starts_with('['))) {
        m_all[m_longFinding].isError = true;
    } else {
        add(piece, fault, true);
    }
}

void Findings::warning(const Piece& piece, const Fault& fault, Finding::eKind kind) {
    if (piece.offset == 0) {
        add(piece, fault, false, kind);
    }
}

void Findings::add(const Piece& piece, const Fault& fault, bool isError, Finding::eKind kind) {
    m_all.push_back(
        {piece.line, piece.offset + fault.at + 1, isError, fault.what, fault.mend, kind});
}

void Findings::lose(const Piece& piece) {
    if (m_lostLines.empty() || m_lostLines.back() != piece.line) {
        m_lostLines.push_back(piece.line);
    }
}

void Findings::sort() {
    std::stable_sort(m_all.begin(), m_all.end(), [](const auto& a, const auto& b) {
        return std::tie(a.line, a.column) < std::tie(b.line, b.column);
    });
}

}  // namespace vqreg
