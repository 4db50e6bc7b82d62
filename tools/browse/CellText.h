// Names and data on a screen of cells.
#ifndef TOOLS_BROWSE_CELLTEXT_H
#define TOOLS_BROWSE_CELLTEXT_H

#include <string>
#include <string_view>
#include <vector>

namespace vqreg {

// What takes cells together: a character with what stands above and below it, or a byte that is none.
struct Glyph {
    std::string bytes;   // as they are in the store
    std::wstring shown;  // "\x1B" for what would do something to the terminal, or says nothing
    int columns = 0;
    bool isEscaped = false;
};

// The first glyphs of a text, enough for so many columns and one more.
std::vector<Glyph> glyphsOf(std::string_view text, int columns);
// All of them.
std::vector<Glyph> glyphsOf(std::string_view text);

int columnsOf(const std::vector<Glyph>& glyphs);

// The text as it is shown, cut where it is wider, with a mark in the last column.
std::wstring fitted(std::string_view text, int columns);
// Likewise, cut at its beginning, and in its middle.
std::wstring fittedEnd(std::string_view text, int columns);
std::wstring fittedMiddle(std::string_view text, int columns);
// Cut at its end, and with blanks up to that width.
std::wstring padded(std::string_view text, int columns);

// One character as the bytes of the user's encoding; empty where it has none for it.
std::string bytesOf(wchar_t character);

}  // namespace vqreg

#endif  // TOOLS_BROWSE_CELLTEXT_H
