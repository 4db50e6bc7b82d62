// A text with the NUL that functions of C want at its end.
#ifndef REGLIB_BASE_TERMINATED_H
#define REGLIB_BASE_TERMINATED_H

#include <string>
#include <string_view>

namespace VQRegLib {

// Short ones take no memory beyond their own.
class CTerminated {
public:
    explicit CTerminated(std::string_view text) {
        if (text.size() < sizeof m_inline) {
            m_inline[text.copy(m_inline, text.size())] = '\0';
        } else {
            m_long = text;
            m_text = m_long.c_str();
        }
    }
    CTerminated(const CTerminated&) = delete;
    CTerminated& operator=(const CTerminated&) = delete;

    const char* c_str() const { return m_text; }

private:
    char m_inline[128];
    std::string m_long;
    const char* m_text = m_inline;
};

}  // namespace VQRegLib

#endif  // REGLIB_BASE_TERMINATED_H
