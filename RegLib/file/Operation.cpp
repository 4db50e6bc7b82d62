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
        (void)m_store.Unlock();  // whoever does not hold it any more has nothing to leave
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

int COperation::findKey(const CRegKey& key) {
    if (m_nResult < 0) {
        return m_nResult;
    }
    m_pKey = m_store.nodeOf(key);
    if (!m_pKey) {
        return REGLIB_E_INVALID_HANDLE;
    }
    return m_pKey->isKey() ? REGLIB_OK : REGLIB_E_NOT_A_KEY;
}

int COperation::findValue(const CRegKey& key, const char* name) {
    const int result = findKey(key);
    if (result < 0) {
        return result;
    }
    m_pValue = m_store.m_pTree->findChild(*m_pKey, std::string_view(name));
    return m_pValue && m_pValue->isKey() ? REGLIB_E_NOT_A_VALUE : REGLIB_OK;
}

int COperation::findExistingValue(const CRegKey& key, const char* name) {
    const int result = findValue(key, name);
    return result >= 0 && !m_pValue ? REGLIB_E_NOT_FOUND : result;
}

}  // namespace VQRegLib
