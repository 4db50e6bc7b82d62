#include "RegLib/store/HandleTable.h"

namespace VQRegLib {

// An entry's node is changed by these two only, so that the index follows.
void CHandleTable::point(NodeEntries::iterator entry, void* node) {
    m_idsByNode.emplace(node, entry->first);
    entry->second = node;
}

void CHandleTable::unpoint(NodeEntries::iterator entry) {
    m_idsByNode.erase({entry->second, entry->first});
    entry->second = nullptr;
}

CRegKeyImpl* CHandleTable::enroll(void* node, CRegKeyImpl* record) {
    const std::uint32_t id = m_ulNextHandleId;
    const auto [nodeEntry, isNew] = m_mapHandleToNode.try_emplace(id);
    try {
        CRegKeyImpl*& entry = m_mapHandleToKeyImpl[id];
        unpoint(nodeEntry);
        point(nodeEntry, node);
        return std::exchange(entry, record);
    } catch (...) {
        if (isNew) {
            retire(id);
        }
        throw;
    }
}

void CHandleTable::clearPendingNode() {
    const auto found = m_mapHandleToNode.find(m_ulNextHandleId);
    if (found != m_mapHandleToNode.end()) {
        unpoint(found);
    }
}

void CHandleTable::retirePending(const CRegKeyImpl* record) {
    if (recordOf(m_ulNextHandleId) == record) {
        retire(m_ulNextHandleId);
    }
}

void CHandleTable::retire(std::uint32_t id) {
    const auto found = m_mapHandleToNode.find(id);
    if (found != m_mapHandleToNode.end()) {
        unpoint(found);
        m_mapHandleToNode.erase(found);
    }
    m_mapHandleToKeyImpl.erase(id);
}

void* CHandleTable::nodeOf(std::uint32_t id) const {
    const auto found = m_mapHandleToNode.find(id);
    return found == m_mapHandleToNode.end() ? nullptr : found->second;
}

CRegKeyImpl* CHandleTable::recordOf(std::uint32_t id) const {
    const auto found = m_mapHandleToKeyImpl.find(id);
    return found == m_mapHandleToKeyImpl.end() ? nullptr : found->second;
}

void CHandleTable::orphan(const void* node) {
    auto at = m_idsByNode.lower_bound({node, 0});
    while (at != m_idsByNode.end() && at->first == node) {
        m_mapHandleToNode.find(at->second)->second = nullptr;
        at = m_idsByNode.erase(at);
    }
}

void CHandleTable::move(const void* from, void* to) {
    auto at = m_idsByNode.lower_bound({from, 0});
    while (at != m_idsByNode.end() && at->first == from) {
        auto entry = m_idsByNode.extract(at++);
        entry.value().first = to;
        m_mapHandleToNode.find(entry.value().second)->second = to;
        m_idsByNode.insert(std::move(entry));
    }
}

bool CHandleTable::takeFirst(std::uint32_t& id, CRegKeyImpl*& record) {
    const auto first = m_mapHandleToKeyImpl.begin();
    if (first == m_mapHandleToKeyImpl.end()) {
        return false;
    }
    id = first->first;
    record = first->second;
    retire(id);
    return true;
}

}  // namespace VQRegLib
