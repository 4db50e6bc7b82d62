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
        m_chunks[at] = m_pSpare ? std::move(m_pSpare) : std::make_unique<Chunk>();
    }
    return *m_chunks[at];
}

// The only one to change an entry's node, so that the index follows. Changes nothing when it throws.
void CHandleTable::point(Entry& entry, std::uint32_t id, void* node) {
    if (node) {
        m_idsByNode.emplace(node, id);
    }
    if (entry.node && entry.node != node) {
        m_idsByNode.erase({entry.node, id});
    }
    entry.node = node;
}

CRegKeyImpl* CHandleTable::enroll(void* node, CRegKeyImpl* record) {
    const std::uint32_t id = m_ulNextHandleId;
    Chunk& chunk = chunkOf(id);
    Entry& entry = chunk.entries[id % kChunkIds];
    point(entry, id, node);
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
        m_pSpare = std::move(m_chunks[at]);
    }
}

void CHandleTable::clearPendingNode() {
    if (Entry* const entry = entryOf(m_ulNextHandleId)) {
        point(*entry, m_ulNextHandleId, nullptr);
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
    point(*entry, id, nullptr);
    entry->record = nullptr;
    --m_size;
    const std::size_t at = id / kChunkIds;
    m_chunks[at]->used &= ~bitOf(id);
    if (at != m_ulNextHandleId / kChunkIds) {
        dropIfEmpty(at);
    }
}

void CHandleTable::orphan(const void* node) {
    auto at = m_idsByNode.lower_bound({node, 0});
    while (at != m_idsByNode.end() && at->first == node) {
        entryOf(at->second)->node = nullptr;
        at = m_idsByNode.erase(at);
    }
}

void CHandleTable::move(const void* from, void* to) {
    auto at = m_idsByNode.lower_bound({from, 0});
    while (at != m_idsByNode.end() && at->first == from) {
        auto entry = m_idsByNode.extract(at++);
        entry.value().first = to;
        entryOf(entry.value().second)->node = to;
        m_idsByNode.insert(std::move(entry));
    }
}

bool CHandleTable::takeFirst(std::uint32_t& id, CRegKeyImpl*& record) {
    if (m_size == 0) {
        return false;
    }
    while (!m_chunks[m_first] || m_chunks[m_first]->used == 0) {
        ++m_first;
    }
    const auto place = static_cast<std::uint32_t>(std::countr_zero(m_chunks[m_first]->used));
    id = static_cast<std::uint32_t>(m_first) * kChunkIds + place;
    record = recordOf(id);
    retire(id);
    return true;
}

}  // namespace VQRegLib
