// The lines of a configuration file as the library's reader takes them apart, with their places and
// with what is odd about them.
#ifndef TOOLS_VQREG_TEXT_TEXTLINES_H
#define TOOLS_VQREG_TEXT_TEXTLINES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "RegLib/text/LineSplitter.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

// What the reader takes at once: a line with its line end, or a part of a line that is too long.
struct Piece {
    std::size_t line = 0;    // from 1
    std::size_t offset = 0;  // of the piece in its line
    std::string_view bytes;
    bool isLast = false;  // of its line
};

class PieceReader {
public:
    explicit PieceReader(std::string_view text) : m_rest(text) {}
    bool next(Piece& piece);

private:
    std::string_view m_rest;
    std::size_t m_line = 1;
    std::size_t m_offset = 0;
};

enum class eCut { eNone, eLineEnd, eCarriageReturn, eNul };

// The part of a piece that the reader looks at, and what ends it before the end of the piece.
// eLineEnd: a carriage return at the end of the line, which is an ordinary line end.
std::string_view cutPiece(std::string_view bytes, eCut& cut);

// Something wrong at a place of a line.
struct Fault {
    std::size_t at = 0;  // from 0
    std::string what;
    std::string mend;
};

struct ValueLine {
    std::string_view name;
    std::size_t nameAt = 0;
    VQRegLib::CRegLib::eDataType type = VQRegLib::CRegLib::eNone;
    std::string_view data;  // after the first ":" of the line, wherever that is
    std::size_t dataAt = 0;
};

// The fault for which the reader refuses the line, if there is one.
std::optional<Fault> readValueLine(std::string_view line, ValueLine& parts);

// What the reader accepts but hardly anybody means.
std::vector<Fault> oddities(const ValueLine& parts);

Value valueOf(const ValueLine& parts);

// The names in a key line's path as the reader splits it: a slash at the end adds no name.
std::vector<std::string_view> namesOfKeyLine(std::string_view path);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_TEXTLINES_H
