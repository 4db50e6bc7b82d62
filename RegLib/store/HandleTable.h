// The table of a store's open key handles.
#ifndef REGLIB_STORE_HANDLETABLE_H
#define REGLIB_STORE_HANDLETABLE_H

#include <cstdint>
#include <map>
#include <set>
#include <utility>

namespace VQRegLib {

class CRegKeyImpl;

// Handle ids, from 1 upwards and never reused, with the node and the record that each stands for.
// Both maps always hold the same ids. Owns neither nodes nor records.
class CHandleTable {
public:
    std::uint32_t nextId() const { return m_ulNextHandleId; }

    // Enters the next id for a node and its record. The id stays the next one until advance is
    // called; entering it again replaces the entries. Returns the record it replaced, if any.
    CRegKeyImpl* enroll(void* node, CRegKeyImpl* record);
    void advance() { ++m_ulNextHandleId; }

    // After a registration that failed, the next id has entries already. Its node must not be found
    // through them, and its record may have to leave before they are overwritten.
    void clearPendingNode();
    void retirePending(const CRegKeyImpl* record);

    // Erases the id from both maps; an unknown one changes nothing.
    void retire(std::uint32_t id);

    // Null when the id is unknown or its node has gone.
    void* nodeOf(std::uint32_t id) const;
    CRegKeyImpl* recordOf(std::uint32_t id) const;

    // Makes the ids of a node read as unregistered, because the node is about to be freed. Their
    // entries stay. Costs what the node's own ids cost, however many others there are.
    void orphan(const void* node);

    // Lets the ids of one node stand for another one, which has none yet. Needs no memory.
    void move(const void* from, void* to);

    // Takes the first id and its record out of the table. False when the table is empty.
    bool takeFirst(std::uint32_t& id, CRegKeyImpl*& record);

    std::size_t size() const { return m_mapHandleToKeyImpl.size(); }

private:
    using NodeEntries = std::map<std::uint32_t, void*>;

    void point(NodeEntries::iterator entry, void* node);
    void unpoint(NodeEntries::iterator entry);

    NodeEntries m_mapHandleToNode;
    std::uint32_t m_ulNextHandleId = 1;
    std::map<std::uint32_t, CRegKeyImpl*> m_mapHandleToKeyImpl;
    std::set<std::pair<const void*, std::uint32_t>> m_idsByNode;  // of entries that have a node
};

}  // namespace VQRegLib

#endif  // REGLIB_STORE_HANDLETABLE_H
