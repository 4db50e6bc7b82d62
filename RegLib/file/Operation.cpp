// The opening of every key and value operation, in one place.
//
// The order of codes is part of the interface: the import's own code comes first, then a handle that is
// not registered, then a handle that stands for a value, then the name. COperation has these as steps;
// only the opening of a path goes its own way.
//
// A change runs twice when it has to. The first time without the lock it finds out whether there is
// anything to change: most sets do not change anything, and none of these waits for anybody. Only if it
// must does it take the lock, bring the tree up to date once more, because between the look and the lock
// others may have written, and look everything up again: nodes that were found before may be gone.
#include "RegLib/file/Operation.h"

#include <exception>

namespace VQRegLib {

CStoreLock::CStoreLock(CRegLibImplFile& store, eUnwinding unwinding, eHow how)
    : m_store(store),
      m_unwinding(unwinding),
      m_exceptions(std::uncaught_exceptions()),
      m_result(how == eTry ? store.takeLock(0) : store.Lock()) {}

CStoreLock::~CStoreLock() {
    const bool unwinding = std::uncaught_exceptions() > m_exceptions;
    if (m_result >= 0 && (!unwinding || m_unwinding == eUnwinding::eRelease)) {
        (void)m_store.Unlock();  // whoever does not hold it any more has nothing to leave
    }
}

// The node is one of this tree for as long as the record says so.
void CRegLibImplFile::expectInLargeTree(const CRegKey& key) {
    CRegKeyImpl* const record = CRegKeyAccess::record(key);
    if (record && record->m_pRegLibImpl == this && record->m_node) {
        const auto& node = *static_cast<const CKeyOrValue*>(record->m_node);
        CTree::expectValues(node, record->m_lineHint);
        record->m_lineHint = reinterpret_cast<std::uintptr_t>(node.m_line);
    }
}

// What others have changed since the operation began is read without a line of its own at its head:
// each operation tells of its import once.
int COperation::lockForChange() {
    if (m_store.isUpdatedElsewhere()) {
        return REGLIB_E_FAIL;
    }
    m_lock.emplace(m_store);
    if (m_lock->result() < 0) {
        return m_lock->result();
    }
    m_result = m_store.isUpToDate() ? REGLIB_OK : m_store.bringUpToDate(eUnwinding::eRelease);
    return m_result;
}

}  // namespace VQRegLib
