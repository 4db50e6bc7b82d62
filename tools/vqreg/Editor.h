// A text in the hands of the user's editor.
#ifndef TOOLS_VQREG_EDITOR_H
#define TOOLS_VQREG_EDITOR_H

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

// Runs $VISUAL, $EDITOR or vi, whichever is set first, and waits for its end. Throws CommandError
// when it fails.
void runEditor(const std::string& file);

}  // namespace vqreg

#endif  // TOOLS_VQREG_EDITOR_H
