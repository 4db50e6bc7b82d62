// Finds a child by its parent and its folded name.
#ifndef REGLIB_TREE_NAMEINDEX_H
#define REGLIB_TREE_NAMEINDEX_H

#include <cstddef>
#include <cstdint>

#include "RegLib/tree/KeyOrValue.h"
#include "portable/LargeMemory.h"

namespace VQRegLib {

// One table for all nodes of a tree: open addressing, a third of it free or more. The place of an entry
// follows from its hash by a multiplication, so that the table may grow by a quarter of its size
// instead of by its double.
class CNameIndex {
public:
    // Of the parent's address, which a look-up knows before the node itself is in the cache.
    static std::uint32_t hashOf(const CKeyOrValue& parent, std::uint64_t nameHash) {
        const std::uint64_t mixed =
            (nameHash ^ reinterpret_cast<std::uintptr_t>(&parent)) * 0xD6E8FEB86659FD93;
        return static_cast<std::uint32_t>(mixed >> 32);
    }

    struct CEntry {
        std::uint32_t hash;
        NodeNumber node;  // 0: free
    };

    // The entries with a hash, one after the other; a free one behind the last.
    const CEntry* firstOf(std::uint32_t hash) const { return ofHash(hash, m_entries + home(hash)); }
    const CEntry* nextOf(std::uint32_t hash, const CEntry* before) const {
        return ofHash(hash, behind(before));
    }

    // Whoever looks up names at random seldom finds their entries in the cache.
    bool isLarge() const { return m_capacity > kRoomy; }

    // Somebody is about to add or look for an entry: its place is on the way to the cache meanwhile.
    void expect(std::uint32_t hash) const { __builtin_prefetch(m_entries + home(hash), 1); }

    // Makes room for so many more entries. Throws std::bad_alloc, and has changed nothing then.
    void reserve(std::size_t more) {
        if (more > m_room - m_size) {
            grow(more);
        }
    }

    // There must be room.
    void add(std::uint32_t hash, NodeNumber node) {
        std::size_t at = home(hash);
        while (m_entries[at].node != 0) {
            at = after(at);
        }
        m_entries[at] = {hash, node};
        ++m_size;
    }
    void remove(std::uint32_t hash, NodeNumber node);
    void replace(std::uint32_t hash, NodeNumber node, NodeNumber by);

private:
    // A table with more places has fewer of them free.
    static constexpr std::size_t kRoomy = 32'768;
    static std::size_t roomIn(std::size_t capacity);
    static std::size_t capacityFor(std::size_t entries);

    const CEntry* ofHash(std::uint32_t hash, const CEntry* at) const {
        while (at->hash != hash && at->node != 0) {
            at = behind(at);
        }
        return at;
    }
    std::size_t home(std::uint32_t hash) const {
        return static_cast<std::size_t>((std::uint64_t{hash} * m_capacity) >> 32);
    }
    const CEntry* behind(const CEntry* at) const {
        return at + 1 == m_entries + m_capacity ? m_entries : at + 1;
    }
    std::size_t after(std::size_t at) const { return at + 1 == m_capacity ? 0 : at + 1; }
    std::size_t placeOf(std::uint32_t hash, NodeNumber node) const;
    void grow(std::size_t more);

    CLargeMemory m_memory;
    // Without memory there is one place, which is free.
    static inline CEntry m_none{0, 0};
    CEntry* m_entries = &m_none;
    std::size_t m_capacity = 1;
    std::size_t m_room = 0;  // for so many entries
    std::size_t m_size = 0;
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_NAMEINDEX_H
