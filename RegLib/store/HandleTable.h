// The table of a store's open key handles.
#ifndef REGLIB_STORE_HANDLETABLE_H
#define REGLIB_STORE_HANDLETABLE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "RegLib/store/KeyRecord.h"

namespace VQRegLib {

// Handle ids, from 1 upwards and not given out twice in the first 2^32 openings, with the node and the
// record that each stands for. Owns neither nodes nor records.
//
// The ids lie in chunks one after the other, so that what an id stands for is found without a search.
// A chunk goes with the last of its ids; what is left of it then is a pointer, a bit for each id.
class CHandleTable {
public:
    struct Entry {
        void* node = nullptr;           // null when it has gone
        CRegKeyImpl* record = nullptr;  // null when the id is not in use
    };

    std::uint32_t nextId() const { return m_ulNextHandleId; }

    // Enters the next id for a node and its record. The id stays the next one until advance is
    // called; entering it again replaces the entry. Returns the record it replaced, if any.
    CRegKeyImpl* enroll(void* node, CRegKeyImpl* record);
    void advance();

    // After a registration that failed, the next id has an entry already. Its node must not be found
    // through it, and its record may have to leave before it is overwritten.
    void clearPendingNode();
    void retirePending(const CRegKeyImpl* record);

    // Erases the id; an unknown one changes nothing.
    void retire(std::uint32_t id);

    // Null when the id is unknown.
    const Entry* find(std::uint32_t id) const {
        const std::size_t at = id / kChunkIds;
        if (at >= m_chunks.size() || !m_chunks[at]) {
            return nullptr;
        }
        const Entry& entry = m_chunks[at]->entries[id % kChunkIds];
        return entry.record ? &entry : nullptr;
    }

    // Null when the id is unknown or its node has gone.
    void* nodeOf(std::uint32_t id) const {
        const Entry* const entry = find(id);
        return entry ? entry->node : nullptr;
    }
    CRegKeyImpl* recordOf(std::uint32_t id) const {
        const Entry* const entry = find(id);
        return entry ? entry->record : nullptr;
    }

    // Makes the ids of the nodes for which `isGone` is true read as unregistered, because these are
    // about to be freed. Their entries stay.
    template <typename IsGone>
    void orphan(IsGone&& isGone) {
        for (const std::unique_ptr<Chunk>& chunk : m_chunks) {
            for (std::uint32_t at = 0; chunk && at < kChunkIds; ++at) {
                Entry& entry = chunk->entries[at];
                if (entry.node && isGone(entry.node)) {
                    entry.node = nullptr;
                    entry.record->m_node = nullptr;
                }
            }
        }
    }

    // Tells the first id and its record. False when the table is empty.
    bool findFirst(std::uint32_t& id, CRegKeyImpl*& record);

    std::size_t size() const { return m_size; }

private:
    static constexpr std::uint32_t kChunkIds = 64;

    struct Chunk {
        Entry entries[kChunkIds];
        std::uint64_t used = 0;  // a bit for each id in use
    };

    Entry* entryOf(std::uint32_t id) { return const_cast<Entry*>(std::as_const(*this).find(id)); }
    Chunk& chunkOf(std::uint32_t id);
    void dropIfEmpty(std::size_t at);

    std::vector<std::unique_ptr<Chunk>> m_chunks;  // null where no id is in use
    std::unique_ptr<Chunk> m_spare;  // for who opens and closes one key after the other
    std::uint32_t m_ulNextHandleId = 1;
    std::size_t m_size = 0;
    std::size_t m_first = 0;  // no chunk before it has an id in use
};

}  // namespace VQRegLib

#endif  // REGLIB_STORE_HANDLETABLE_H
