// The nodes of the tree: keys and values.
#ifndef REGLIB_FILE_NODE_H
#define REGLIB_FILE_NODE_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "RegLib/file/FileStore.h"

namespace VQRegLib {

// The invisible node above the top-level keys.
constexpr char kTreeRootName[] = "<root>";

class CRegLibImplFile::CKeyOrValue {
public:
    // By folded name, in byte order; owns the children.
    using Children = std::map<std::string, std::unique_ptr<CKeyOrValue>, std::less<>>;

    CKeyOrValue(int isKey, std::string name) : m_iIsKey(isKey), m_strName(std::move(name)) {}

    // Frees everything below, however deep: a line has room for a thousand levels, and the thread may
    // have little stack.
    ~CKeyOrValue();
    CKeyOrValue(const CKeyOrValue&) = delete;
    CKeyOrValue& operator=(const CKeyOrValue&) = delete;

    CKeyOrValue* findChild(std::string_view foldedName) const {
        const auto found = m_mapChildren.find(foldedName);
        return found == m_mapChildren.end() ? nullptr : found->second.get();
    }

    // Where a child of that name is or belongs. `near` is tried first: lines of a file arrive in
    // the order of the map.
    Children::iterator lowerBound(Children::iterator near, std::string_view foldedName);

    // Adds a finished node, which gets this one as its parent.
    CKeyOrValue* addChild(Children::iterator before, std::string_view foldedName,
                          std::unique_ptr<CKeyOrValue> child);

    // The next node of a walk over `top` and what is below it, each node before those below it; null
    // at the end. Without recursion and without memory of its own. A file can hang nodes below a
    // value, which are nowhere shown: only the third walk goes there.
    const CKeyOrValue* nextKey(const CKeyOrValue& top) const;
    const CKeyOrValue* nextShown(const CKeyOrValue& top) const;
    const CKeyOrValue* nextOfAll(const CKeyOrValue& top) const;

    std::uint32_t m_ulKeyHandleID = 0;  // the last one registered for this key
    std::int32_t m_iIsKey;              // 1 for a key, 0 for a value
    CKeyOrValue* m_pParent = nullptr;   // null for the tree root only
    std::string m_strName;              // as it was created
    std::string m_strFullName;          // a key's line in the file
    Children m_mapChildren;
    Children::iterator m_place;  // in the parent's children
    CRegLib::eDataType m_eDataType = CRegLib::eNone;
    std::string m_strValue;  // a value's line in the file
};

// Remembered positions in the tree. Where the last enumeration stood: counting through n children
// takes n steps instead of n * n / 2. And where the import expects its next value.
class CTreePositions {
public:
    using CKeyOrValue = CRegLibImplFile::CKeyOrValue;

    // The index-th sub key, or value, of a node; null past the last.
    const CKeyOrValue* find(const CKeyOrValue& node, std::int32_t isKey, int index);

    // The tree has changed under the enumerations.
    void forget() { m_positions[0].node = m_positions[1].node = nullptr; }

    CKeyOrValue::Children::iterator importHint;

private:
    struct Position {
        const CKeyOrValue* node = nullptr;
        int index = 0;
        CKeyOrValue::Children::const_iterator at;
    };
    Position m_positions[2];  // for values and for sub keys
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_NODE_H
