// The index is one open table for a whole tree instead of a map for each key. A store has many keys with
// few children; one table has neither their headers nor their rounding, and a look-up is one product, one
// place and, nearly always, one node.
//
// Entries keep 32 bits of the hash, so that growing does not touch the nodes, and a place that holds
// another name is passed over without looking at it. Removal leaves no marks: the entries behind the gap
// move up, so that a table in which names come and go for years is as fast as a new one.
#include "RegLib/tree/NameIndex.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

namespace VQRegLib {

namespace {

constexpr std::size_t kSmallest = 16;

}  // namespace

// Half of the places stay free, so that most names are at their home, while that takes little memory; a
// third in a larger table.
std::size_t CNameIndex::roomIn(std::size_t capacity) {
    return capacity <= kRoomy ? capacity / 2 : capacity - capacity / 3 - 1;
}

std::size_t CNameIndex::capacityFor(std::size_t entries) {
    return entries <= kRoomy / 2 ? 2 * entries : std::max(kRoomy + 1, entries + entries / 2 + 2);
}

void CNameIndex::grow(std::size_t more) {
    constexpr std::size_t kMost = std::min<std::size_t>(0xFFFFFFFF, SIZE_MAX / sizeof(CEntry));
    if (more > kMost - m_size) {
        throw std::bad_alloc();
    }
    const std::size_t capacity =
        std::max({capacityFor(m_size + more), m_capacity + m_capacity / 4, kSmallest});
    if (capacity > kMost) {
        throw std::bad_alloc();
    }
    CLargeMemory memory(capacity * sizeof(CEntry), CLargeMemory::eZeroes);
    std::swap(memory, m_memory);
    const CEntry* const old =
        std::exchange(m_entries, std::launder(reinterpret_cast<CEntry*>(m_memory.get())));
    const std::size_t oldCapacity = std::exchange(m_capacity, capacity);
    m_room = roomIn(capacity);
    m_size = 0;
    for (std::size_t at = 0; at < oldCapacity; ++at) {
        if (old[at].node != 0) {
            add(old[at].hash, old[at].node);
        }
    }
}

std::size_t CNameIndex::placeOf(std::uint32_t hash, NodeNumber node) const {
    std::size_t at = home(hash);
    while (m_entries[at].node != node) {
        at = after(at);
    }
    return at;
}

void CNameIndex::replace(std::uint32_t hash, NodeNumber node, NodeNumber by) {
    m_entries[placeOf(hash, node)].node = by;
}

// Entries behind the gap that would no longer be found from their home move into it.
void CNameIndex::remove(std::uint32_t hash, NodeNumber node) {
    std::size_t gap = placeOf(hash, node);
    for (std::size_t at = after(gap); m_entries[at].node != 0; at = after(at)) {
        const std::size_t wanted = home(m_entries[at].hash);
        const bool isBetween =
            gap <= at ? gap < wanted && wanted <= at : gap < wanted || wanted <= at;
        if (!isBetween) {
            m_entries[gap] = m_entries[at];
            gap = at;
        }
    }
    m_entries[gap] = {0, 0};
    --m_size;
}

}  // namespace VQRegLib
