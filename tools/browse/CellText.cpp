#include "tools/browse/CellText.h"

#include <fmt/format.h>

#include <array>
#include <climits>
#include <cwchar>
#include <cwctype>
#include <limits>
#include <numeric>

namespace vqreg {

namespace {

constexpr std::size_t kMostInCell =
    3;  // a character and two marks: curses has room for no more than five

struct Range {
    wchar_t first;
    wchar_t last;
};

// They change the direction of what follows or are not seen at all: a name could look like another.
constexpr std::array<Range, 15> kUnseen = {{{0xAD, 0xAD},
                                            {0x34F, 0x34F},
                                            {0x61C, 0x61C},
                                            {0x115F, 0x1160},
                                            {0x17B4, 0x17B5},
                                            {0x180B, 0x180F},
                                            {0x200B, 0x200F},
                                            {0x2028, 0x202E},
                                            {0x2060, 0x206F},
                                            {0x3164, 0x3164},
                                            {0xFE00, 0xFE0F},
                                            {0xFEFF, 0xFEFF},
                                            {0xFFA0, 0xFFA0},
                                            {0xFFF9, 0xFFFB},
                                            {0xE0000, 0xE0FFF}}};

bool isSeen(wchar_t character) {
    for (const Range& range : kUnseen) {
        if (character >= range.first && character <= range.last) {
            return false;
        }
    }
    return std::iswprint(static_cast<std::wint_t>(character)) != 0;
}

Glyph escaped(std::string_view bytes) {
    Glyph glyph;
    glyph.isEscaped = true;
    glyph.bytes = bytes;
    for (const char byte : bytes) {
        for (const char letter : fmt::format("\\x{:02X}", static_cast<unsigned char>(byte))) {
            glyph.shown += static_cast<wchar_t>(letter);
            ++glyph.columns;
        }
    }
    return glyph;
}

// The next character; 0 for a byte that begins none, and for a NUL.
wchar_t decode(std::string_view text, std::size_t& size) {
    std::mbstate_t state{};
    wchar_t character = 0;
    size = std::mbrtowc(&character, text.data(), text.size(), &state);
    if (size == 0 || size > text.size()) {
        size = 1;
        return 0;
    }
    return character;
}

// An escaped byte is not a character that something could stand above.
bool takesMark(const std::vector<Glyph>& glyphs) {
    return !glyphs.empty() && !glyphs.back().isEscaped && glyphs.back().shown.size() < kMostInCell;
}

void append(std::vector<Glyph>& glyphs, std::string_view bytes, wchar_t character) {
    const int columns = character != 0 && isSeen(character) ? ::wcwidth(character) : -1;
    if (columns == 0 && takesMark(glyphs)) {
        glyphs.back().bytes += bytes;
        glyphs.back().shown += character;
    } else if (columns > 0) {
        glyphs.push_back({std::string(bytes), std::wstring(1, character), columns});
    } else {
        glyphs.push_back(escaped(bytes));
    }
}

wchar_t cutMark(wchar_t otherwise) {
    return bytesOf(L'\u2026').empty() ? otherwise : L'\u2026';
}

}  // namespace

std::vector<Glyph> glyphsOf(std::string_view text, int columns) {
    std::vector<Glyph> glyphs;
    int used = 0;
    while (!text.empty() && used <= columns) {
        std::size_t size = 0;
        const wchar_t character = decode(text, size);
        const std::size_t before = glyphs.size();
        append(glyphs, text.substr(0, size), character);
        used += glyphs.size() > before ? glyphs.back().columns : 0;
        text.remove_prefix(size);
    }
    return glyphs;
}

std::vector<Glyph> glyphsOf(std::string_view text) {
    return glyphsOf(text, std::numeric_limits<int>::max() - 1);
}

int columnsOf(const std::vector<Glyph>& glyphs) {
    return std::accumulate(glyphs.begin(), glyphs.end(), 0,
                           [](int sum, const Glyph& glyph) { return sum + glyph.columns; });
}

std::wstring fitted(std::string_view text, int columns) {
    const std::vector<Glyph> glyphs = glyphsOf(text, columns);
    const bool isCut = columnsOf(glyphs) > columns;
    const int room = isCut ? columns - 1 : columns;
    std::wstring shown;
    int used = 0;
    for (const Glyph& glyph : glyphs) {
        used += glyph.columns;
        if (used > room) {
            break;
        }
        shown += glyph.shown;
    }
    if (isCut && columns > 0) {
        shown += cutMark(L'>');
    }
    return shown;
}

std::wstring fittedEnd(std::string_view text, int columns) {
    const std::vector<Glyph> glyphs = glyphsOf(text);
    int used = columnsOf(glyphs);
    std::wstring shown(used > columns ? 1 : 0, cutMark(L'<'));
    const int room = columns - static_cast<int>(shown.size());
    for (const Glyph& glyph : glyphs) {
        if (used <= room) {
            shown += glyph.shown;
        }
        used -= glyph.columns;
    }
    return shown;
}

std::wstring fittedMiddle(std::string_view text, int columns) {
    const std::vector<Glyph> glyphs = glyphsOf(text);
    int left = columnsOf(glyphs);
    if (left <= columns) {
        return fitted(text, columns);
    }
    const int end = columns / 2;
    std::wstring shown = fitted(text, columns - end);
    for (const Glyph& glyph : glyphs) {
        if (left <= end) {
            shown += glyph.shown;
        }
        left -= glyph.columns;
    }
    return shown;
}

std::wstring padded(std::string_view text, int columns) {
    std::wstring shown = fitted(text, columns);
    const int used = ::wcswidth(shown.c_str(), shown.size());
    shown.append(static_cast<std::size_t>(columns > used ? columns - used : 0), L' ');
    return shown;
}

std::string bytesOf(wchar_t character) {
    std::mbstate_t state{};
    std::array<char, MB_LEN_MAX> bytes{};
    const std::size_t size = std::wcrtomb(bytes.data(), character, &state);
    return size == static_cast<std::size_t>(-1) ? std::string() : std::string(bytes.data(), size);
}

}  // namespace vqreg
