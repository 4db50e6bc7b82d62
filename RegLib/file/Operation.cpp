#include "RegLib/file/Operation.h"

#include <exception>

namespace VQRegLib {

CStoreLock::CStoreLock(CRegLibImplFile& store, eUnwinding unwinding)
    : m_store(store), m_unwinding(unwinding), m_nExceptions(std::uncaught_exceptions()) {
    m_store.Lock();
}

CStoreLock::~CStoreLock() {
    const bool unwinding = std::uncaught_exceptions() > m_nExceptions;
    if (!unwinding || m_unwinding == eUnwinding::eRelease) {
        m_store.Unlock();
    }
}

int COperation::findKey(const CRegKey& key) {
    if (m_nResult < 0) {
        return m_nResult;
    }
    m_pKey = m_store.nodeOf(key);
    if (!m_pKey) {
        return REGLIB_E_INVALID_HANDLE;
    }
    return m_pKey->m_iIsKey ? REGLIB_OK : REGLIB_E_NOT_A_KEY;
}

int COperation::findValue(const CRegKey& key, const char* name) {
    const int result = findKey(key);
    if (result < 0) {
        return result;
    }
    m_name.emplace(name);
    m_pValue = m_pKey->findChild(m_name->view());
    return m_pValue && m_pValue->m_iIsKey ? REGLIB_E_NOT_A_VALUE : REGLIB_OK;
}

int COperation::findExistingValue(const CRegKey& key, const char* name) {
    const int result = findValue(key, name);
    return result >= 0 && !m_pValue ? REGLIB_E_NOT_FOUND : result;
}

}  // namespace VQRegLib
