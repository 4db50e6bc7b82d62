#include "tools/browse/LineEdit.h"

#include <algorithm>

#include "tools/browse/CellText.h"

namespace vqreg {

bool LineEdit::take(const Keystroke& key) {
    switch (key.key) {
        case eKey::eText:
            return key.character < L' ' ? takeControl(key.character)
                                        : insert(bytesOf(key.character));
        case eKey::eByte:
            return insert(std::string(1, static_cast<char>(key.number)));
        case eKey::eLeft:
            m_cursor = left();
            return true;
        case eKey::eRight:
            m_cursor = right();
            return true;
        case eKey::eHome:
            m_cursor = 0;
            return true;
        case eKey::eEnd:
            m_cursor = m_text.size();
            return true;
        case eKey::eBackspace:
            eraseTo(left());
            return true;
        case eKey::eDelete:
            eraseTo(right());
            return true;
        default:
            return false;
    }
}

bool LineEdit::takeControl(wchar_t letter) {
    switch (letter) {
        case control('A'):
            m_cursor = 0;
            return true;
        case control('E'):
            m_cursor = m_text.size();
            return true;
        case control('U'):
            eraseTo(0);
            return true;
        case control('K'):
            eraseTo(m_text.size());
            return true;
        default:
            return false;
    }
}

bool LineEdit::insert(const std::string& bytes) {
    m_text.insert(m_cursor, bytes);
    m_cursor += bytes.size();
    return !bytes.empty();
}

void LineEdit::eraseTo(std::size_t other) {
    const auto [first, last] = std::minmax(m_cursor, other);
    m_text.erase(first, last - first);
    m_cursor = first;
}

std::size_t LineEdit::left() const {
    std::size_t at = 0;
    for (const Glyph& glyph : glyphsOf(m_text)) {
        if (at + glyph.bytes.size() >= m_cursor) {
            return at;
        }
        at += glyph.bytes.size();
    }
    return at;
}

std::size_t LineEdit::right() const {
    std::size_t at = 0;
    for (const Glyph& glyph : glyphsOf(m_text)) {
        at += glyph.bytes.size();
        if (at > m_cursor) {
            return at;
        }
    }
    return m_text.size();
}

// The cursor has a column of its own behind the text, and stays in the right half of a long one.
LineEdit::Part LineEdit::part(int columns) const {
    const std::vector<Glyph> before = glyphsOf(std::string_view(m_text).substr(0, m_cursor));
    int used = columnsOf(before);
    auto first = before.begin();
    while (first != before.end() && used > columns - 1) {
        used -= first->columns;
        ++first;
    }
    Part part;
    part.cursor = used;
    for (auto at = first; at != before.end(); ++at) {
        part.shown += at->shown;
    }
    part.shown += fitted(std::string_view(m_text).substr(m_cursor), columns - used);
    return part;
}

}  // namespace vqreg
