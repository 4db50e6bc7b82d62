// The terminal as a screen. Whatever way the process ends, but for SIGKILL, the terminal is left as it
// was.
#ifndef TOOLS_BROWSE_SCREEN_H
#define TOOLS_BROWSE_SCREEN_H

#include <optional>
#include <string>

#include "tools/browse/Keyboard.h"

namespace vqreg {

enum class eLook {
    ePlain,
    eTitle,
    eKey,
    eType,
    eChosen,
    eElsewhere,
    eMarkNew,
    eMarkChanged,
    eMarkLost,
    eStatus,
    eMessage
};

// One at a time.
class Screen {
public:
    // Throws CommandError where standard input and output are no terminal, or one that cannot move its
    // cursor.
    explicit Screen(bool isColored);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    int rows() const;
    int columns() const;

    // A picture is drawn from the beginning each time; what differs from the last one is written.
    void begin();
    void put(int row, int column, const std::wstring& text, eLook look = eLook::ePlain);
    void setCursor(int row, int column);  // seen only where it is set
    void finish();

    // The next key that was typed; none when there is no more, nor between a stop and the next picture.
    std::optional<Keystroke> read();

    void resize();   // to the terminal's size
    void redraw();   // with everything, at the next picture
    void retake();   // after a stop, in which others may have used the terminal
    void suspend();  // gives the terminal back, stops, and takes it again when it goes on

private:
    void giveBack();

    Keyboard m_keyboard;
    bool m_hasCursor = false;
    bool m_tellsPasted = false;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_SCREEN_H
