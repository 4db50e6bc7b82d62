// What others have changed while somebody looks.
#ifndef TOOLS_BROWSE_MARKS_H
#define TOOLS_BROWSE_MARKS_H

#include <map>
#include <string>
#include <vector>

#include "tools/vqreg/text/Difference.h"

namespace vqreg {

class Marks {
public:
    void add(const std::vector<Change>& changes);
    // What was changed by others before is one's own now.
    void remove(const std::vector<Change>& own);
    void clear() { m_keys.clear(); }
    bool isEmpty() const { return m_keys.empty(); }

    // '+' for what has been created, '~' for what has changed, ' ' for all else.
    char ofValue(const Path& path, const std::string& name) const;
    // Likewise; '-' for a key of which something has been deleted, and '~' also where there is a mark
    // below, which may not be seen.
    char ofKey(const Path& path) const;

private:
    struct KeyMarks {
        bool isCreated = false;
        bool hasLost = false;
        std::map<std::string, char> values;
    };

    KeyMarks& at(const Path& path);

    std::map<Path, KeyMarks> m_keys;  // by folded paths: what is below a key follows it
};

// Leaves the changes that are not in the other list, and returns those that are.
std::vector<Change> takeOwn(std::vector<Change>& changes, const std::vector<Change>& own);

}  // namespace vqreg

#endif  // TOOLS_BROWSE_MARKS_H
