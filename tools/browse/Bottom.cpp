#include "tools/browse/Bottom.h"

#include <algorithm>
#include <cwchar>
#include <string>
#include <vector>

#include "tools/browse/CellText.h"

namespace vqreg {

namespace {

constexpr const char* kHints =
    "?:help  /:search  Enter:edit  a:add  K:key  r:rename  d:delete  u:undo  q:end";

// Of a long path the end is seen, so that the rest is, too.
void drawStatus(Screen& screen, const Browser& browser, const Status& status) {
    constexpr int kShortestPath = 20;
    const int columns = screen.columns();
    const std::string& fault = browser.fault();
    const std::string more = (fault.empty() ? fault : " | " + fault) + status.text();
    const int others = columnsOf(glyphsOf(more, columns));
    const std::wstring file = fittedEnd(status.file(), std::max(kShortestPath, columns - others));
    const int used = ::wcswidth(file.c_str(), file.size());
    screen.put(screen.rows() - 3, 0, file, eLook::eStatus);
    screen.put(screen.rows() - 3, used, padded(more, columns - used), eLook::eStatus);
}

// A text of several lines. What comes last is not divided, and there is room for the cursor behind it.
std::vector<std::wstring> linesOf(const std::wstring& text, const std::wstring& last, int columns) {
    std::vector<std::wstring> lines(1);
    int used = 0;
    for (const wchar_t character : text) {
        const int width = std::max(0, ::wcwidth(character));
        if (used + width > columns) {
            lines.emplace_back();
            used = 0;
        }
        lines.back() += character;
        used += width;
    }
    if (used + ::wcswidth(last.c_str(), last.size()) >= columns) {
        lines.emplace_back();
    }
    lines.back() += last;
    return lines;
}

// What is to be known is seen before a long name is, which is cut.
std::wstring questionText(const Dialog& dialog, int room) {
    const int labelWidth = columnsOf(glyphsOf(dialog.label(), room));
    const std::wstring rest = fitted(dialog.rest(), room - std::min(labelWidth, room / 3));
    return fittedMiddle(dialog.label(), room - ::wcswidth(rest.c_str(), rest.size())) + rest;
}

// A long one begins on the lines above.
void drawQuestion(Screen& screen, const Dialog& dialog) {
    constexpr int kMostLines = 3;
    const int columns = screen.columns();
    const int answersWidth = columnsOf(glyphsOf(dialog.answers()));
    // A wide character may not fit at the end of a line, nor the answers at the end of the last.
    const int room = kMostLines * (columns - 1) - 2 * answersWidth;
    const auto lines =
        linesOf(questionText(dialog, room), fitted(dialog.answers(), answersWidth), columns);
    int row = screen.rows() - 1 - static_cast<int>(lines.size());
    for (const std::wstring& line : lines) {
        screen.put(row, 0, std::wstring(static_cast<std::size_t>(columns), L' '));
        screen.put(row++, 0, line, eLook::eTitle);
    }
    screen.setCursor(row - 1, ::wcswidth(lines.back().c_str(), lines.back().size()));
}

// The line of the question or the message, and the last one: keys, or what is wrong with an answer.
void drawBottomLines(Screen& screen, const Browser& browser) {
    const int row = screen.rows() - 2;
    const int columns = screen.columns();
    const Dialog& dialog = browser.dialog();
    if (!dialog.isOpen()) {
        screen.put(row, 0, fitted(browser.message(), columns), eLook::eMessage);
        const std::string keys = browser.isWriting() ? browser.waitText() : kHints;
        screen.put(row + 1, 0, fitted(keys, columns));
        return;
    }
    const std::string& told = browser.message();
    const char* const keys = dialog.isText() ? "Enter accepts, Esc gives up" : "Esc gives up";
    screen.put(row + 1, 0, fitted(told.empty() ? keys : told, columns),
               told.empty() ? eLook::ePlain : eLook::eMessage);
    if (!dialog.isText()) {
        drawQuestion(screen, dialog);
        return;
    }
    const std::wstring label = fitted(dialog.label(), columns / 2);
    const int at = std::max(0, ::wcswidth(label.c_str(), label.size()));
    screen.put(row, 0, label, eLook::eTitle);
    const LineEdit::Part part = dialog.edit().part(columns - at);
    screen.put(row, at, part.shown);
    screen.setCursor(row, at + part.cursor);
}

}  // namespace

void drawBottom(Screen& screen, const Browser& browser, const Status& status) {
    drawStatus(screen, browser, status);
    drawBottomLines(screen, browser);
}

}  // namespace vqreg
