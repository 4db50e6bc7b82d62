// What is seen of a store, and where in it one is.
#ifndef TOOLS_BROWSE_CONTENTS_H
#define TOOLS_BROWSE_CONTENTS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/browse/Marks.h"
#include "tools/browse/Pane.h"
#include "tools/browse/Search.h"
#include "tools/browse/TreeRows.h"
#include "tools/vqreg/text/Difference.h"

namespace vqreg {

class Contents {
public:
    // Another state of the root key. One stays at the key and the value where one is, or near them.
    // @return what others have changed: all but one's own changes, which get no marks
    std::vector<Change> replace(Key root, const std::vector<Change>& own);

    const Key& root() const { return m_tree.top(); }
    const TreeRows& tree() const { return m_tree; }
    const Marks& marks() const { return m_marks; }
    void clearMarks() { m_marks.clear(); }

    // Where one is: the key, and the value, if the values are what one moves in and there is one.
    Path path() const { return m_tree.pathOf(m_keys.chosen()); }
    const Key& key() const { return *m_tree.rows()[m_keys.chosen()].key; }
    const std::vector<const Value*>& values() const { return m_list; }
    const Value* value() const;
    Place place() const;

    bool isInValues() const { return m_isInValues; }
    void setInValues(bool is) { m_isInValues = is && !m_list.empty(); }

    void go(const Place& place);
    void move(long rows);
    void moveToEnd(bool last);
    void openKey();
    void closeKey();
    void goUp();  // to the key above

    // For a window of that height.
    void scroll(std::size_t height);
    const Pane& keyPane() const { return m_keys; }
    const Pane& valuePane() const { return m_values; }

private:
    void list();
    void chooseKey(std::size_t row);
    void chooseValue(const std::string& name, std::size_t otherwise);

    TreeRows m_tree;
    Marks m_marks;
    Pane m_keys;
    Pane m_values;
    std::vector<const Value*> m_list;  // of the key
    bool m_isInValues = false;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_CONTENTS_H
