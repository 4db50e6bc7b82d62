// Keys as the parts that know no screen get them.
#ifndef TOOLS_BROWSE_KEYSTROKE_H
#define TOOLS_BROWSE_KEYSTROKE_H

namespace vqreg {

enum class eKey {
    eText,      // a character; Ctrl with a letter is a character below blank
    eByte,      // that is no character, or none of the user's encoding
    eFunction,  // F1 and so on
    eUp,
    eDown,
    eLeft,
    eRight,
    ePageUp,
    ePageDown,
    eHome,
    eEnd,
    eEnter,
    eEscape,
    eTab,
    eBackspace,
    eDelete,
    eOther
};

struct Keystroke {
    eKey key = eKey::eOther;
    wchar_t character = 0;  // of a text
    int number = 0;         // of a function key, or the byte
    bool isPasted = false;  // with other texts and with bytes; eOther stands for all else in it

    bool isText(wchar_t wanted) const { return key == eKey::eText && character == wanted; }
    bool isFunction(int wanted) const { return key == eKey::eFunction && number == wanted; }
};

constexpr wchar_t control(char letter) {
    return static_cast<wchar_t>(letter & 0x1F);
}

}  // namespace vqreg

#endif  // TOOLS_BROWSE_KEYSTROKE_H
