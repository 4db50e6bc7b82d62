#include "RegLib/file/Operation.h"

#include <exception>

namespace VQRegLib {

CStoreLock::CStoreLock(CRegLibImplFile& store, eUnwinding unwinding, eHow how)
    : m_store(store),
      m_unwinding(unwinding),
      m_nExceptions(std::uncaught_exceptions()),
      m_nResult(how == eTry ? store.takeLock(0) : store.Lock()) {}

CStoreLock::~CStoreLock() {
    const bool unwinding = std::uncaught_exceptions() > m_nExceptions;
    if (m_nResult >= 0 && (!unwinding || m_unwinding == eUnwinding::eRelease)) {
        m_store.Unlock();
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
    m_nResult = m_store.isUpToDate() ? REGLIB_OK : m_store.bringUpToDate(eUnwinding::eRelease);
    return m_nResult;
}

}  // namespace VQRegLib
