// Merges lines of values that are as a library has written them.
#ifndef REGLIB_TREE_PLAINVALUES_H
#define REGLIB_TREE_PLAINVALUES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "RegLib/tree/Tree.h"

namespace VQRegLib {

// For a key without sub keys: its next values, as long as the names come one after the other in their
// order and behind those that it has, so that none of them can exist. What each of these lines makes is
// what CMerge::valueLine makes of it, only that memory is asked for once for several.
class CPlainValues {
public:
    explicit CPlainValues(CTree& tree) : m_tree(tree) {}

    // Takes lines off the beginning of a text in which no line is cut. False when there is none of
    // that kind, when the key has sub keys or so many values that they are more than one list, or no
    // memory: nothing has changed then.
    [[nodiscard]] bool take(CKeyOrValue& key, std::string_view& text);

private:
    static constexpr std::size_t kMost = 64;

    // A name, with its first eight bytes as a number that is in order as the name is.
    struct CPlaced {
        std::string_view name;
        std::uint64_t begin = 0;
    };

    bool findRoom(const CKeyOrValue& key);
    std::size_t collect(CKeyOrValue& key, std::string_view& text);
    bool makeRoom(CKeyOrValue& key, std::size_t count);

    CTree& m_tree;
    CNodePool::CFresh m_fresh;      // the nodes that are made
    std::size_t m_most = 0;         // how many at once
    bool m_hasLast = false;         // the key has values ...
    CPlaced m_last;                 // ... and this is the name of the last one
    std::uint32_t m_hashes[kMost];  // under which the nodes will be found
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_PLAINVALUES_H
