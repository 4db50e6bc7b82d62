#include "RegLib/store/HandleTable.h"

namespace VQRegLib {

CRegKeyImpl* CHandleTable::enroll(void* node, CRegKeyImpl* record) {
    const std::uint32_t id = m_ulNextHandleId;
    const auto nodeEntry = m_mapHandleToNode.try_emplace(id);
    CRegKeyImpl* replaced = nullptr;
    try {
        CRegKeyImpl*& entry = m_mapHandleToKeyImpl[id];
        replaced = entry;
        entry = record;
    } catch (...) {
        if (nodeEntry.second) {
            m_mapHandleToNode.erase(nodeEntry.first);
        }
        throw;
    }
    nodeEntry.first->second = node;
    return replaced;
}

void CHandleTable::clearPendingNode() {
    const auto found = m_mapHandleToNode.find(m_ulNextHandleId);
    if (found != m_mapHandleToNode.end()) {
        found->second = nullptr;
    }
}

void CHandleTable::retirePending(const CRegKeyImpl* record) {
    if (recordOf(m_ulNextHandleId) == record) {
        retire(m_ulNextHandleId);
    }
}

void CHandleTable::retire(std::uint32_t id) {
    m_mapHandleToNode.erase(id);
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

// Only called where the whole file is rewritten anyway, so an index from nodes to ids would cost
// more in every registration than it would save here.
void CHandleTable::orphan(const void* node) {
    for (auto& entry : m_mapHandleToNode) {
        if (entry.second == node) {
            entry.second = nullptr;
        }
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
