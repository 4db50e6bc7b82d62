// The memory of the nodes.
#ifndef REGLIB_TREE_NODEPOOL_H
#define REGLIB_TREE_NODEPOOL_H

#include <memory>
#include <vector>

#include "RegLib/tree/KeyOrValue.h"

namespace VQRegLib {

// Blocks of nodes by number, from 1 upwards. Numbers of freed nodes are given out again.
class CNodePool {
public:
    CKeyOrValue& operator[](NodeNumber number) const {
        return m_blocks[number / kBlock][number % kBlock];
    }

    // A node with nothing but its number. Throws std::bad_alloc.
    CKeyOrValue& take();
    void give(CKeyOrValue& node);

    // Calls `use` for every node that is taken.
    template <typename Use>
    void forEach(Use&& use) const {
        for (NodeNumber number = 1; number <= m_last; ++number) {
            if ((*this)[number].m_number != 0) {
                use((*this)[number]);
            }
        }
    }

    std::size_t size() const { return m_size; }

private:
    static constexpr std::uint32_t kBlock = 512;

    std::vector<std::unique_ptr<CKeyOrValue[]>> m_blocks;
    NodeNumber m_last = 0;
    NodeNumber m_firstFree = 0;  // freed nodes have the next one in the place of their parent
    std::size_t m_size = 0;
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_NODEPOOL_H
