// CRegKey: a caller's handle on a key.
#include "RegLib/store/KeyRecord.h"
#include "RegLib/trace/Trace.h"
#include "VQRegLib.h"

namespace VQRegLib {

CRegKey::CRegKey() : m_pImpl(nullptr) {}

CRegKey::~CRegKey() {
    try {
        CRegKeyAccess::release(*this);
    } catch (const VQException& exception) {
        // The record is gone all the same. Letting this out would end the program, as a destructor
        // that may throw would bar CRegKey members from most classes.
        REGLIB_TRACE(eTraceAlways, "(Error) CRegKey::~CRegKey (0x%08X), exception %s\n",
                     traceId(this), exception.m_szText);
    }
}

const char* CRegKey::GetKeyName() const {
    return m_pImpl ? m_pImpl->m_pszKeyName : nullptr;
}

const char* CRegKey::GetKeyFullName() const {
    return m_pImpl ? m_pImpl->m_pszFullName : nullptr;
}

unsigned long CRegKey::GetKeyHandleID() const {
    return CRegKeyAccess::id(*this);
}

}  // namespace VQRegLib
