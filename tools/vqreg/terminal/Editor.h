// A text in the hands of the user's editor.
#ifndef TOOLS_VQREG_TERMINAL_EDITOR_H
#define TOOLS_VQREG_TERMINAL_EDITOR_H

#include <functional>
#include <string>
#include <string_view>

namespace vqreg {

// A file that only its owner can read, below $TMPDIR or /tmp; removed at the end of the scope
// unless it is kept. Throws CommandError eWriteFailed.
class TemporaryText {
public:
    explicit TemporaryText(std::string_view text);
    ~TemporaryText();
    TemporaryText(const TemporaryText&) = delete;
    TemporaryText& operator=(const TemporaryText&) = delete;

    const std::string& path() const { return m_path; }
    void keep() { m_isKept = true; }

private:
    std::string m_path;
    bool m_isKept = false;
};

// Lets the user edit the text, again when he wants to, until `check` does not throw. False when the
// text is still the one of before.
bool editText(const TemporaryText& file, const std::string& before,
              const std::function<void(const std::string&)>& check);

// What is done with an edited text. When it fails, the text is kept, and it is said where.
void keepingText(TemporaryText& file, const std::function<void()>& work);

// Runs $VISUAL, $EDITOR or vi, whichever is set first, and waits for its end. Throws CommandError
// when it fails.
void runEditor(const std::string& file);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TERMINAL_EDITOR_H
