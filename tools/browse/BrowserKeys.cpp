// The part of the browser that knows what each key means.
#include "tools/browse/Browser.h"

namespace vqreg {

bool Browser::takeMove(const Keystroke& key) {
    const long page = static_cast<long>(m_height);
    if (key.key == eKey::eUp || key.isText(L'k')) {
        m_contents.move(-1);
    } else if (key.key == eKey::eDown || key.isText(L'j')) {
        m_contents.move(1);
    } else if (key.key == eKey::ePageUp || key.isText(control('B'))) {
        m_contents.move(-page);
    } else if (key.key == eKey::ePageDown || key.isText(control('F'))) {
        m_contents.move(page);
    } else if (key.key == eKey::eHome || key.isText(L'g')) {
        m_contents.moveToEnd(false);
    } else if (key.key == eKey::eEnd || key.isText(L'G')) {
        m_contents.moveToEnd(true);
    } else {
        return false;
    }
    return true;
}

bool Browser::takeSide(const Keystroke& key) {
    if (key.key == eKey::eTab) {
        m_contents.setInValues(!m_contents.isInValues());
    } else if (key.key == eKey::eRight || key.isText(L'l')) {
        right();
    } else if (key.key == eKey::eLeft || key.isText(L'h')) {
        left();
    } else if (key.key == eKey::eEnter) {
        enter();
    } else {
        return false;
    }
    return true;
}

bool Browser::takeEdit(const Keystroke& key) {
    if (key.isText(L'e') || key.isFunction(4)) {
        editValue();
    } else if (key.isText(L't')) {
        changeType();
    } else if (key.isText(L'a')) {
        addValue();
    } else if (key.isText(L'K') || key.isFunction(7)) {
        addKey();
    } else if (key.isText(L'r') || key.isFunction(6)) {
        rename();
    } else if (key.isText(L'd') || key.isFunction(8) || key.key == eKey::eDelete) {
        remove();
    } else if (key.isText(L'u')) {
        undo();
    } else {
        return false;
    }
    return true;
}

void Browser::takeOther(const Keystroke& key) {
    if (key.isText(L'/')) {
        search();
    } else if (key.isText(L'n') || key.isText(L'N')) {
        searchNext(key.isText(L'n'));
    } else if (key.isText(L'c')) {
        m_contents.clearMarks();
    } else if (key.isText(control('L')) || key.isFunction(5)) {
        m_redraw = true;
    } else if (key.isText(L'?') || key.isFunction(1)) {
        m_isHelpShown = true;
    } else if (key.isText(L'q') || key.isFunction(10)) {
        m_isOver = true;
    } else if (key.key == eKey::eText && key.character > L' ') {
        m_message = "no such key; ? tells which there are";
    }
}

// Into the key: it opens, then its first sub key, or its values, where it has no more.
void Browser::right() {
    if (m_contents.isInValues()) {
        return;
    }
    const TreeRows::Row& row = m_contents.tree().rows()[m_contents.keyPane().chosen()];
    if (row.key->keys.empty()) {
        m_contents.setInValues(true);
    } else if (row.isOpen) {
        m_contents.move(1);
    } else {
        m_contents.openKey();
    }
}

void Browser::left() {
    if (m_contents.isInValues()) {
        m_contents.setInValues(false);
        return;
    }
    const std::size_t at = m_contents.keyPane().chosen();
    const TreeRows::Row& row = m_contents.tree().rows()[at];
    if (at != 0 && row.isOpen && !row.key->keys.empty()) {
        m_contents.closeKey();
    } else {
        m_contents.goUp();
    }
}

void Browser::enter() {
    if (m_contents.isInValues()) {
        editValue();
        return;
    }
    const TreeRows::Row& row = m_contents.tree().rows()[m_contents.keyPane().chosen()];
    if (row.key->keys.empty()) {
        m_contents.setInValues(true);
    } else {
        row.isOpen ? m_contents.closeKey() : m_contents.openKey();
    }
}

void Browser::search() {
    m_dialog.askText("Search: ", m_searched, [this](const std::string& text) {
        m_searched = text;
        searchNext(true);
        return true;
    });
}

void Browser::searchNext(bool forward) {
    if (m_searched.empty()) {
        m_message = "nothing to search for; / asks";
        return;
    }
    const auto found = findNext(m_contents.root(), m_contents.place(), m_searched, forward);
    if (!found) {
        m_message = "not found: " + m_searched;
        return;
    }
    m_contents.go(*found);
    m_contents.scroll(m_height);
}

}  // namespace vqreg
