// The memory of the nodes.
#ifndef REGLIB_TREE_NODEPOOL_H
#define REGLIB_TREE_NODEPOOL_H

#include <vector>

#include "RegLib/tree/KeyOrValue.h"
#include "portable/LargeMemory.h"

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

    // Nodes that can be made without asking for memory, one behind the other and behind all others. None
    // while there are freed ones. They belong to the pool once they are kept, the first ones first.
    struct CFresh {
        CKeyOrValue* first = nullptr;
        NodeNumber number = 0;  // of the first one
        std::size_t count = 0;
    };
    CFresh fresh() const;
    void keep(std::size_t count) {
        m_last += static_cast<NodeNumber>(count);
        m_size += count;
    }

    // Gets the memory for so many more nodes at once, if there is less. Throws std::bad_alloc.
    void expect(std::size_t more);
    std::size_t room() const;  // so many more can be taken without asking for memory

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
    static constexpr std::size_t kBlockSize = kBlock * sizeof(CKeyOrValue);

    void addBlock();

    std::vector<CKeyOrValue*> m_blocks;
    std::vector<CLargeMemory> m_memory;  // of all blocks; of the last piece ...
    std::size_t m_unused = 0;            // ... so many bytes at its end are not yet a block's
    NodeNumber m_last = 0;
    NodeNumber m_firstFree = 0;  // freed nodes have the next one in the place of their parent
    std::size_t m_size = 0;
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_NODEPOOL_H
