// Cuts a text into the lines of a configuration file.
#ifndef REGLIB_TEXT_LINESPLITTER_H
#define REGLIB_TEXT_LINESPLITTER_H

#include <cstddef>
#include <string_view>

namespace VQRegLib {

// Longer lines come in pieces of this many characters, each of which is a line of its own: the
// limit that every reader of these files has always had.
constexpr std::size_t kLongestPiece = 2048;

// Takes the next piece off `rest`: up to and with the first line feed, or the longest there is.
// `isWhole` tells that the text ends with `rest`; what is left without a line feed is then a piece
// too. False when nothing is left of a whole text, or when it takes more of it to tell.
bool takePiece(std::string_view& rest, bool isWhole, std::string_view& piece);

// The line in a piece: cut at its first carriage return, else at its line feed, and before all at a
// NUL.
std::string_view lineOfPiece(std::string_view piece);

// Both in one.
bool takeLine(std::string_view& rest, bool isWhole, std::string_view& line);

}  // namespace VQRegLib

#endif  // REGLIB_TEXT_LINESPLITTER_H
