#include "tools/browse/Keyboard.h"

#define NCURSES_NOMACROS  // which have the names of everybody's functions
#include <curses.h>
#include <unistd.h>

#include <cwchar>
#include <string_view>

#include "tools/browse/TerminalType.h"
#include "tools/vqreg/base/FileHandle.h"

namespace vqreg {

namespace {

enum : int { KeyPasteBegin = KEY_MAX + 1, KeyPasteEnd };

constexpr std::string_view kPasteEnd = "\x1b[201~";

Keystroke specialKey(int code) {
    if (code > KEY_F0 && code <= KEY_F(63)) {
        return {eKey::eFunction, 0, code - KEY_F0};
    }
    switch (code) {
        case KEY_UP:
            return {eKey::eUp};
        case KEY_DOWN:
            return {eKey::eDown};
        case KEY_LEFT:
            return {eKey::eLeft};
        case KEY_RIGHT:
            return {eKey::eRight};
        case KEY_PPAGE:
            return {eKey::ePageUp};
        case KEY_NPAGE:
            return {eKey::ePageDown};
        case KEY_HOME:
            return {eKey::eHome};
        case KEY_END:
            return {eKey::eEnd};
        case KEY_ENTER:
            return {eKey::eEnter};
        case KEY_BACKSPACE:
            return {eKey::eBackspace};
        case KEY_DC:
            return {eKey::eDelete};
        default:
            return {};
    }
}

Keystroke textKey(wchar_t character) {
    switch (character) {
        case L'\r':
        case L'\n':
            return {eKey::eEnter};
        case L'\t':
            return {eKey::eTab};
        case 0x1B:
            return {eKey::eEscape};
        case 0x08:
        case 0x7F:
            return {eKey::eBackspace};
        default:
            return {eKey::eText, character};
    }
}

// A byte that begins no character is one for itself.
Keystroke byteKey(char byte) {
    return {eKey::eByte, 0, static_cast<unsigned char>(byte)};
}

}  // namespace

// What terminals send that do not take their orders about the keys of the cursor, and around what is
// pasted.
void Keyboard::define() {
    struct Sequence {
        const char* text;
        int code;
    };
    for (const Sequence& each :
         {Sequence{"\x1b[A", KEY_UP}, Sequence{"\x1b[B", KEY_DOWN}, Sequence{"\x1b[C", KEY_RIGHT},
          Sequence{"\x1b[D", KEY_LEFT}, Sequence{"\x1b[H", KEY_HOME}, Sequence{"\x1b[F", KEY_END},
          Sequence{"\x1b[200~", KeyPasteBegin}, Sequence{kPasteEnd.data(), KeyPasteEnd}}) {
        ::define_key(each.text, each.code);
    }
}

void Keyboard::tellPasted(bool isWanted) {
    if (m_isPasting) {
        takeBytes(true);
        m_isPasting = false;
    }
    writeAll(STDOUT_FILENO, capability(isWanted ? "BE" : "BD"));
}

std::optional<Keystroke> Keyboard::read() {
    int code = 0;
    while (m_keys.empty() && (code = ::getch()) != ERR) {
        take(code);
    }
    if (m_keys.empty()) {
        return std::nullopt;
    }
    const Keystroke key = m_keys.front();
    m_keys.pop_front();
    return key;
}

void Keyboard::take(int code) {
    if (code == KEY_RESIZE) {
        return;  // nobody has typed that
    }
    if (code < KEY_MIN) {
        m_bytes += static_cast<char>(code);
        takeBytes(false);
        return;
    }
    takeBytes(true);
    if (code == KeyPasteBegin || code == KeyPasteEnd) {
        m_isPasting = code == KeyPasteBegin;
    } else {
        add(specialKey(code));
    }
}

// The rest of a character may come later, unless this is the end. So may that of the mark behind what is
// pasted: curses waits for it only as long as for the rest of a key.
void Keyboard::takeBytes(bool isEnd) {
    constexpr auto kIncomplete = static_cast<std::size_t>(-2);
    while (!m_bytes.empty()) {
        if (m_isPasting && !isEnd && kPasteEnd.starts_with(m_bytes)) {
            takePasteEnd();
            return;
        }
        std::mbstate_t state{};
        wchar_t character = 0;
        const std::size_t size = std::mbrtowc(&character, m_bytes.data(), m_bytes.size(), &state);
        if (size == kIncomplete && !isEnd) {
            return;
        }
        const bool isCharacter = size <= m_bytes.size();
        add(isCharacter ? textKey(character) : byteKey(m_bytes.front()));
        m_bytes.erase(0, isCharacter && size > 0 ? size : 1);
    }
}

void Keyboard::takePasteEnd() {
    if (m_bytes == kPasteEnd) {
        m_bytes.clear();
        m_isPasting = false;
    }
}

// What is pasted is text: a key in it is none.
void Keyboard::add(Keystroke key) {
    const bool isText = key.key == eKey::eByte || (key.key == eKey::eText && key.character >= L' ');
    if (m_isPasting && !isText) {
        key = {};
    }
    key.isPasted = m_isPasting;
    m_keys.push_back(key);
}

}  // namespace vqreg
