// A text of one line in the hands of who types it.
#ifndef TOOLS_BROWSE_LINEEDIT_H
#define TOOLS_BROWSE_LINEEDIT_H

#include <string>

#include "tools/browse/Keystroke.h"

namespace vqreg {

// What is typed is text; control characters can only be kept and removed.
class LineEdit {
public:
    explicit LineEdit(std::string text = {}) : m_text(std::move(text)), m_cursor(m_text.size()) {}

    const std::string& text() const { return m_text; }

    // False for a key that means nothing here.
    bool take(const Keystroke& key);

    // The part around the cursor that fits, and the column of the cursor in it.
    struct Part {
        std::wstring shown;
        int cursor = 0;
    };
    Part part(int columns) const;

private:
    bool takeControl(wchar_t letter);
    bool insert(const std::string& bytes);
    void eraseTo(std::size_t other);
    std::size_t left() const;
    std::size_t right() const;

    std::string m_text;
    std::size_t m_cursor;  // at the beginning of a glyph, or at the end
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_LINEEDIT_H
