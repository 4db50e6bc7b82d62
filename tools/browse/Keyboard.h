// What a person types at the terminal, as keys.
#ifndef TOOLS_BROWSE_KEYBOARD_H
#define TOOLS_BROWSE_KEYBOARD_H

#include <deque>
#include <optional>
#include <string>

#include "tools/browse/Keystroke.h"

namespace vqreg {

// Characters are put together here: curses takes away what comes behind a byte that is none.
class Keyboard {
public:
    // Once curses has been begun.
    void define();

    // The next key that was typed; none when there is no more.
    std::optional<Keystroke> read();

    // Whether the terminal is to tell pasted texts from typed ones. Not all can.
    void tellPasted(bool isWanted);

private:
    void take(int code);
    void takeBytes(bool isEnd);
    void takePasteEnd();
    void add(Keystroke key);

    std::deque<Keystroke> m_keys;
    std::string m_bytes;  // of a character, or of a mark, that has begun
    bool m_isPasting = false;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_KEYBOARD_H
