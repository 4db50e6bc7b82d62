// Handles, records and who frees them.
//
// A CRegKey is a pointer to a record; the record has the key's names, its id, and the count of handles
// that refer to it. The store's table lists the record under the id. Three cases decide who frees it:
//
//  - The last handle goes while the store lives: the record leaves the table and is freed.
//  - The store goes first: every record in its table loses its owner and its names, and goes on being
//    what the handles refer to, an empty key. The last of these handles frees it.
//  - A path of six names makes six records, of which the caller gets the last. The other five are given
//    up by a handle that never had a reference, so that their count goes below zero: such a record
//    belongs to the table alone, which frees it with the store.
//
// A handle's destructor never throws, although clearing a record copies empty names and may run out of
// memory: a class that holds a handle could otherwise not be destroyed while another exception passes.
#include "RegLib/store/KeyRecord.h"

#include <cstdlib>
#include <cstring>

#include "RegLib/base/ThrowPoint.h"
#include "RegLib/trace/Trace.h"

namespace VQRegLib {

namespace {

void freeText(char*& text) {
    std::free(text);
    text = nullptr;
}

void replaceText(char*& text, const char* replacement, eThrowPoint point) {
    freeText(text);
    text = strdup(replacement);
    if (!text) {
        throwAt(point);
    }
}

}  // namespace

CRegKeyImpl::CRegKeyImpl()
    : m_pRegLibImpl(nullptr),
      m_ulHandleId(0),
      m_pszKeyName(nullptr),
      m_pszFullName(nullptr),
      m_lRefCount(0) {
    REGLIB_TRACE(eTraceFlow, "CRegKeyImpl::CRegKeyImpl 0x%08X\n", traceId(this));
}

CRegKeyImplFile::CRegKeyImplFile() {
    REGLIB_TRACE(eTraceFlow, "CRegKeyImplFile::CRegKeyImplFile 0x%08X\n", traceId(this));
}

CRegKeyImplFile::~CRegKeyImplFile() {
    REGLIB_TRACE(eTraceFlow, "CRegKeyImplFile::~CRegKeyImplFile 0x%08X\n", traceId(this));
    freeText(m_pszKeyName);
}

void CRegKeyImplFile::SetKeyInfo(CRegLibImpl* owner, const char* fullName, const char* keyName,
                                 unsigned long handleId) {
    m_pRegLibImpl = owner;
    replaceText(m_pszFullName, fullName, eThrowPoint::eSetFullName);
    replaceText(m_pszKeyName, keyName, eThrowPoint::eSetKeyName);
    m_ulHandleId = static_cast<std::uint32_t>(handleId);
}

void CRegKeyImplFile::ClearKeyInfo() {
    m_pRegLibImpl = nullptr;
    m_node = nullptr;
    replaceText(m_pszFullName, "", eThrowPoint::eClearFullName);
    replaceText(m_pszKeyName, "", eThrowPoint::eClearKeyName);
    m_ulHandleId = 0;
}

}  // namespace VQRegLib
