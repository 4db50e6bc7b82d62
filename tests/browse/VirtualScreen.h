// A terminal in memory: what a person would see of the bytes that a program writes.
#ifndef VQTEST_VIRTUAL_SCREEN_H
#define VQTEST_VIRTUAL_SCREEN_H

#include <vterm.h>

#include <memory>
#include <string>
#include <vector>

namespace vqtest {

class VirtualScreen {
public:
    VirtualScreen(int rows, int columns) : m_terminal(vterm_new(rows, columns)), m_rows(rows) {
        vterm_set_utf8(m_terminal.get(), 1);
        m_screen = vterm_obtain_screen(m_terminal.get());
        static const VTermScreenCallbacks kCallbacks = [] {
            VTermScreenCallbacks callbacks{};
            callbacks.settermprop = onProperty;
            return callbacks;
        }();
        vterm_screen_set_callbacks(m_screen, &kCallbacks, this);
        vterm_screen_enable_altscreen(m_screen, 1);
        vterm_screen_reset(m_screen, 1);
    }

    void show(const std::string& bytes) {
        vterm_input_write(m_terminal.get(), bytes.data(), bytes.size());
    }
    void resize(int rows, int columns) {
        m_rows = rows;
        vterm_set_size(m_terminal.get(), rows, columns);
    }

    /// The rows without the blanks at their ends. What is shown in reverse is in braces.
    std::vector<std::string> rows() const {
        std::vector<std::string> rows;
        for (int row = 0; row < m_rows; ++row) {
            rows.push_back(textOf(row));
        }
        return rows;
    }

    bool isAlternate() const { return m_isAlternate; }
    bool hasCursor() const { return m_hasCursor; }
    /// The column of the cursor.
    int cursorColumn() const {
        VTermPos position{};
        vterm_state_get_cursorpos(vterm_obtain_state(m_terminal.get()), &position);
        return position.col;
    }

private:
    struct Free {
        void operator()(VTerm* terminal) const { vterm_free(terminal); }
    };

    static int onProperty(VTermProp property, VTermValue* value, void* user) {
        auto& self = *static_cast<VirtualScreen*>(user);
        if (property == VTERM_PROP_ALTSCREEN) {
            self.m_isAlternate = value->boolean != 0;
        } else if (property == VTERM_PROP_CURSORVISIBLE) {
            self.m_hasCursor = value->boolean != 0;
        }
        return 1;
    }

    static void append(std::string& text, std::uint32_t character) {
        if (character < 0x80) {
            text += static_cast<char>(character);
        } else if (character < 0x800) {
            text += static_cast<char>(0xC0 | (character >> 6));
            text += static_cast<char>(0x80 | (character & 0x3F));
        } else if (character < 0x10000) {
            text += static_cast<char>(0xE0 | (character >> 12));
            text += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (character & 0x3F));
        } else {
            text += '?';
        }
    }

    std::string textOf(int row) const {
        int rows = 0;
        int columns = 0;
        vterm_get_size(m_terminal.get(), &rows, &columns);
        std::string text;
        bool isReverse = false;
        for (int column = 0; column <= columns; ++column) {
            VTermScreenCell cell{};
            if (column < columns) {
                vterm_screen_get_cell(m_screen, {row, column}, &cell);
            }
            if ((cell.attrs.reverse != 0) != isReverse) {
                if (column == columns) {
                    trim(text);
                }
                text += isReverse ? '}' : '{';
                isReverse = !isReverse;
            }
            if (column == columns || cell.chars[0] == static_cast<std::uint32_t>(-1)) {
                continue;  // the right half of a wide character
            }
            for (int at = 0; at < VTERM_MAX_CHARS_PER_CELL && cell.chars[at] != 0; ++at) {
                append(text, cell.chars[at]);
            }
            if (cell.chars[0] == 0) {
                text += ' ';
            }
        }
        trim(text);
        return text;
    }

    static void trim(std::string& text) { text.erase(text.find_last_not_of(' ') + 1); }

    std::unique_ptr<VTerm, Free> m_terminal;
    VTermScreen* m_screen = nullptr;
    int m_rows;
    bool m_isAlternate = false;
    bool m_hasCursor = true;
};

}  // namespace vqtest

#endif  // VQTEST_VIRTUAL_SCREEN_H
