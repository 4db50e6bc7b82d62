#include "tools/browse/View.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tools/browse/Bottom.h"
#include "tools/browse/CellText.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

namespace {

constexpr int kFewestRows = 8;
constexpr int kFewestColumns = 40;
constexpr int kLinesBesides = 4;  // path above; status, message and keys below
constexpr int kTypeWidth = 8;

constexpr std::array<const char*, 17> kHelp = {
    "Keys on the left, values of the chosen key on the right.",
    "",
    "Up Down k j        the row above, below       Tab         keys or values",
    "PgUp PgDn ^B ^F    a page up, down            Right l     open a key, or its values",
    "Home End g G       first, last row            Left h      close it, or the key above",
    "Enter              open or close a key; edit a value",
    "/  n  N            search names and data; the next, the one before",
    "",
    "e F4    edit the data                         a           add a value",
    "t       change type and data                  K F7        add a key",
    "r F6    rename                                d F8 Del    delete, after a question",
    "u       undo what was done here last          Esc         give up a question or a wait",
    "",
    "What others change is marked: + new, ~ changed here or below, - lost something.",
    "c       clear the marks                       ^L F5       draw everything anew",
    "q F10   end                                   any key     leave this page",
    ""};

struct Layout {
    int height;    // of the lists
    int keyWidth;  // of the left list
    int valueAt;   // where the right one begins
    int valueWidth;
};

Layout layoutOf(const Screen& screen) {
    const int keyWidth = std::clamp(screen.columns() * 2 / 5, 16, 48);
    return {static_cast<int>(listHeight(screen.rows())), keyWidth, keyWidth + 1,
            screen.columns() - keyWidth - 1};
}

eLook lookOfMark(char mark) {
    return mark == '+' ? eLook::eMarkNew : mark == '-' ? eLook::eMarkLost : eLook::eMarkChanged;
}

// The chosen row is shown as such in the list where one is, and underlined in the other.
eLook lookOfRow(bool isChosen, bool isHere, eLook otherwise) {
    return !isChosen ? otherwise : isHere ? eLook::eChosen : eLook::eElsewhere;
}

void drawMark(Screen& screen, int row, int column, char mark) {
    if (mark != ' ') {
        screen.put(row, column, std::wstring(1, static_cast<wchar_t>(mark)), lookOfMark(mark));
    }
}

void drawKeys(Screen& screen, const Contents& contents, const Layout& layout) {
    const auto& rows = contents.tree().rows();
    const Pane& pane = contents.keyPane();
    for (int line = 0; line < layout.height; ++line) {
        const std::size_t at = pane.first() + static_cast<std::size_t>(line);
        if (at >= rows.size()) {
            return;
        }
        const TreeRows::Row& row = rows[at];
        const int room = layout.keyWidth - 2;
        const int indent = std::min(static_cast<int>(row.depth) * 2, room / 2);
        const char sign = row.key->keys.empty() ? ' ' : row.isOpen ? 'v' : '>';
        const std::string name = row.key->name.empty() ? std::string("\"\"") : row.key->name;
        const std::string text =
            fmt::format("{}{} ", std::string(static_cast<std::size_t>(indent), ' '), sign) + name;
        drawMark(screen, line + 1, 0, contents.marks().ofKey(contents.tree().pathOf(at)));
        screen.put(line + 1, 1, padded(text, room),
                   lookOfRow(at == pane.chosen(), !contents.isInValues(), eLook::eKey));
    }
}

void drawValue(Screen& screen, int line, const Value& value, const Layout& layout, eLook look) {
    const int nameWidth = std::max(8, (layout.valueWidth - kTypeWidth) * 2 / 5);
    const int dataWidth = layout.valueWidth - 3 - nameWidth - kTypeWidth;
    const int at = layout.valueAt + 2;
    const bool isPlain = look == eLook::ePlain;
    const std::string name = value.name.empty() ? std::string("\"\"") : value.name;
    screen.put(line, at, padded(name, nameWidth - 1) + L' ', look);
    screen.put(line, at + nameWidth, padded(typeName(value.type), kTypeWidth),
               isPlain ? eLook::eType : look);
    screen.put(line, at + nameWidth + kTypeWidth, padded(dataText(value), dataWidth), look);
}

void drawValues(Screen& screen, const Contents& contents, const Layout& layout) {
    const auto& values = contents.values();
    const Pane& pane = contents.valuePane();
    const Path path = contents.path();
    const std::wstring border = bytesOf(L'\u2502').empty() ? L"|" : L"\u2502";
    for (int line = 0; line < layout.height; ++line) {
        screen.put(line + 1, layout.valueAt - 1, border);
        const std::size_t at = pane.first() + static_cast<std::size_t>(line);
        if (at >= values.size()) {
            continue;
        }
        const bool isChosen = contents.isInValues() && at == pane.chosen();
        drawMark(screen, line + 1, layout.valueAt,
                 contents.marks().ofValue(path, values[at]->name));
        drawValue(screen, line + 1, *values[at], layout, lookOfRow(isChosen, true, eLook::ePlain));
    }
}

std::string placeText(const Browser& browser) {
    const Contents& contents = browser.contents();
    const Path path = contents.path();
    return path.empty() ? browser.rootName() : browser.rootName() + "/" + plainPath(path);
}

std::string countOf(const Contents& contents) {
    const std::size_t count = contents.values().size();
    const std::string values = fmt::format("{} value{}", count, count == 1 ? "" : "s");
    return contents.isInValues()
               ? fmt::format("{} of {}", contents.valuePane().chosen() + 1, values)
               : values;
}

void drawTitle(Screen& screen, const Browser& browser) {
    const std::string count = countOf(browser.contents());
    const int width = screen.columns() - static_cast<int>(count.size()) - 2;
    // Of a long path the end is seen, which tells where one is.
    screen.put(0, 0, L"[" + fittedEnd(placeText(browser), width - 2) + L"]", eLook::eTitle);
    screen.put(0, width + 1, fitted(count, static_cast<int>(count.size())));
}

void drawHelp(Screen& screen, const Layout& layout) {
    int line = 1;
    for (const char* const text : kHelp) {
        if (line <= layout.height) {
            screen.put(line++, 0, fitted(text, screen.columns()));
        }
    }
}

}  // namespace

std::size_t listHeight(int rows) {
    return static_cast<std::size_t>(std::max(1, rows - kLinesBesides));
}

void draw(Screen& screen, const Browser& browser, const Status& status) {
    screen.begin();
    if (screen.rows() < kFewestRows || screen.columns() < kFewestColumns) {
        screen.put(0, 0,
                   fitted(fmt::format("the terminal is too small: {}x{} is needed", kFewestColumns,
                                      kFewestRows),
                          screen.columns()));
        screen.finish();
        return;
    }
    const Layout layout = layoutOf(screen);
    drawTitle(screen, browser);
    if (browser.isHelpShown()) {
        drawHelp(screen, layout);
    } else {
        drawKeys(screen, browser.contents(), layout);
        drawValues(screen, browser.contents(), layout);
    }
    drawBottom(screen, browser, status);
    screen.finish();
}

}  // namespace vqreg
