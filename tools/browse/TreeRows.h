// The keys of a store as the rows of a list, of which some are open.
#ifndef TOOLS_BROWSE_TREEROWS_H
#define TOOLS_BROWSE_TREEROWS_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

class TreeRows {
public:
    struct Row {
        const Key* key = nullptr;
        std::size_t parent = 0;  // its row; that of the top is its own
        std::size_t depth = 0;
        bool isOpen = false;
    };

    TreeRows() { setTop({}); }
    TreeRows(const TreeRows&) = delete;
    TreeRows& operator=(const TreeRows&) = delete;

    // Another tree in the place of the present one. What was open is open again, where it is still
    // there.
    void setTop(Key top);
    const Key& top() const { return m_top; }

    const std::vector<Row>& rows() const { return m_rows; }
    Path pathOf(std::size_t row) const;  // below the top

    // The row of a key that is seen, or of the nearest one above it.
    std::size_t rowOf(const Path& path) const;
    // Opens all keys above that path, and returns the row of its key, or of the nearest above.
    std::size_t reveal(const Path& path);

    void open(std::size_t row);
    void close(std::size_t row);

private:
    struct Open {
        std::map<std::string, Open> keys;  // by folded names
    };

    void build();
    void addBelow(std::size_t row, const Open& open);
    Open* openAt(const Path& path);

    Key m_top;
    Open m_open;  // the top is always open
    std::vector<Row> m_rows;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_TREEROWS_H
