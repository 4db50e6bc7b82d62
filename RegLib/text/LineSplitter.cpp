// Lines have always been read with a buffer of 2048 characters, and what did not fit came as the next line.
// Files hold such lines, and each process must cut them at the same places: a long text whose second piece
// looks like a value line is a value to everybody. So the limit is a part of the format.
//
// A piece is cut at its line feed; what of it counts is cut once more, at the first carriage return, because
// people edit these files with other editors, and at a NUL, where a text of C ends.
#include "RegLib/text/LineSplitter.h"

namespace VQRegLib {

bool takePiece(std::string_view& rest, bool isWhole, std::string_view& piece) {
    const std::string_view longest = rest.substr(0, kLongestPiece);
    const std::size_t feed = longest.find('\n');
    if (feed != std::string_view::npos) {
        piece = longest.substr(0, feed + 1);
    } else if (longest.size() == kLongestPiece || (isWhole && !longest.empty())) {
        piece = longest;
    } else {
        return false;
    }
    rest.remove_prefix(piece.size());
    return true;
}

std::string_view lineOfPiece(std::string_view piece) {
    piece = piece.substr(0, piece.find('\0'));
    const std::size_t carriageReturn = piece.find('\r');
    return piece.substr(
        0, carriageReturn != std::string_view::npos ? carriageReturn : piece.find('\n'));
}

bool takeLine(std::string_view& rest, bool isWhole, std::string_view& line) {
    std::string_view piece;
    if (!takePiece(rest, isWhole, piece)) {
        return false;
    }
    line = lineOfPiece(piece);
    return true;
}

}  // namespace VQRegLib
