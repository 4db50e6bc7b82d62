// A list of which a part is seen.
#ifndef TOOLS_BROWSE_PANE_H
#define TOOLS_BROWSE_PANE_H

#include <algorithm>
#include <cstddef>

namespace vqreg {

// Which row is chosen, and which is the first on the screen.
class Pane {
public:
    std::size_t chosen() const { return m_chosen; }
    std::size_t first() const { return m_first; }

    void choose(std::size_t row) { m_chosen = row; }

    // By so many rows, at most to the ends of a list of that length.
    void move(long rows, std::size_t length) {
        const long last = static_cast<long>(length) - 1;
        const long wanted = static_cast<long>(m_chosen) + rows;
        m_chosen = static_cast<std::size_t>(std::max(0L, std::min(wanted, last)));
    }

    // Brings the chosen row into a window of that height, and leaves no rows empty that could be used.
    void scroll(std::size_t height, std::size_t length) {
        move(0, length);
        if (m_chosen < m_first) {
            m_first = m_chosen;
        } else if (height > 0 && m_chosen >= m_first + height) {
            m_first = m_chosen - height + 1;
        }
        m_first = std::min(m_first, length > height ? length - height : 0);
    }

private:
    std::size_t m_chosen = 0;
    std::size_t m_first = 0;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_PANE_H
