// Ids count up from 1 for as long as a store lives and are not given out twice in the first 2^32 openings:
// a program may keep an id in its own tables, and one that came back would open the wrong key. A process
// that opens and closes one key a thousand times a second has used up millions in a day. So ids lie in
// chunks of 64, a chunk goes when the last of its ids is closed, and what is left is one null pointer for
// 64 ids.
// Ids of the inner keys of a path stay in use until the store goes (KeyRecord.cpp), so that this helps
// programs that open keys one level at a time; for the others it costs nothing.
#include "RegLib/store/HandleTable.h"

#include <bit>

namespace VQRegLib {

namespace {

constexpr std::uint64_t bitOf(std::uint32_t id) {
    return std::uint64_t{1} << id % 64;
}

}  // namespace

CHandleTable::Chunk& CHandleTable::chunkOf(std::uint32_t id) {
    const std::size_t at = id / kChunkIds;
    if (at >= m_chunks.size()) {
        m_chunks.resize(at + 1);
    }
    if (!m_chunks[at]) {
        m_chunks[at] = m_spare ? std::move(m_spare) : std::make_unique<Chunk>();
    }
    return *m_chunks[at];
}

CRegKeyImpl* CHandleTable::enroll(void* node, CRegKeyImpl* record) {
    const std::uint32_t id = m_ulNextHandleId;
    Chunk& chunk = chunkOf(id);
    Entry& entry = chunk.entries[id % kChunkIds];
    entry.node = node;
    if (!entry.record) {
        chunk.used |= bitOf(id);
        ++m_size;
    }
    return std::exchange(entry.record, record);
}

void CHandleTable::advance() {
    const std::size_t at = m_ulNextHandleId / kChunkIds;
    if (++m_ulNextHandleId / kChunkIds != at) {
        dropIfEmpty(at);
    }
}

// An empty chunk is as good as a new one.
void CHandleTable::dropIfEmpty(std::size_t at) {
    if (at < m_chunks.size() && m_chunks[at] && m_chunks[at]->used == 0) {
        m_spare = std::move(m_chunks[at]);
    }
}

void CHandleTable::clearPendingNode() {
    if (Entry* const entry = entryOf(m_ulNextHandleId)) {
        entry->node = nullptr;
    }
}

void CHandleTable::retirePending(const CRegKeyImpl* record) {
    if (recordOf(m_ulNextHandleId) == record) {
        retire(m_ulNextHandleId);
    }
}

// The chunk of the next id stays: it is about to be needed.
void CHandleTable::retire(std::uint32_t id) {
    Entry* const entry = entryOf(id);
    if (!entry) {
        return;
    }
    entry->record->m_node = nullptr;
    *entry = Entry();
    --m_size;
    const std::size_t at = id / kChunkIds;
    m_chunks[at]->used &= ~bitOf(id);
    if (at != m_ulNextHandleId / kChunkIds) {
        dropIfEmpty(at);
    }
}

bool CHandleTable::findFirst(std::uint32_t& id, CRegKeyImpl*& record) {
    if (m_size == 0) {
        return false;
    }
    while (!m_chunks[m_first] || m_chunks[m_first]->used == 0) {
        ++m_first;
    }
    const auto place = static_cast<std::uint32_t>(std::countr_zero(m_chunks[m_first]->used));
    id = static_cast<std::uint32_t>(m_first) * kChunkIds + place;
    record = recordOf(id);
    return true;
}

}  // namespace VQRegLib
