// The file store's operations on change handlers.
#include <new>

#include "RegLib/base/CritSecGuard.h"
#include "RegLib/base/ThrowPoint.h"
#include "RegLib/file/FileStore.h"
#include "RegLib/trace/Trace.h"
#include "RegLib/watch/Watcher.h"

namespace VQRegLib {

// The store's watcher, made if need be; null when the store is being destroyed.
CRegWatcherThread* CRegLibImplFile::watcherForHandlers() {
    const CCritSecGuard guard(m_watcherLock, __LINE__);
    if (m_hasWatcherEnded) {
        return nullptr;
    }
    if (m_pWatcherThread && m_pWatcherThread->isInherited()) {
        m_pWatcherThread = nullptr;
    }
    if (!m_pWatcherThread) {
        m_pWatcherThread =
            new CRegWatcherThread(eRegModeFile, m_pszFileName ? m_pszFileName : "", m_nResult);
    }
    return m_pWatcherThread;
}

// The handler is entered without m_watcherLock. A round may be going on, and entering waits for its
// end, while one of its handlers may be waiting for m_watcherLock. The watcher stays meanwhile: the
// caller has a session, and a store goes with its last one.
void CRegLibImplFile::SetRegistryChangeHandler(CRegistryChangeHandler* handler) {
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::SetRegistryChangeHandler\n");
    if (handler) {
        if (m_startNotifier) {
            m_startNotifier();
        }
        try {
            if (CRegWatcherThread* const watcher = watcherForHandlers()) {
                watcher->setRegistryChangeHandler(handler);
            }
        } catch (const std::bad_alloc&) {
            throwAt(eThrowPoint::eNewWakeEvent);
        }
    }
    REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::SetRegistryChangeHandler\n");
}

void CRegLibImplFile::ClrRegistryChangeHandler(CRegistryChangeHandler* handler) {
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::ClrRegistryChangeHandler\n");
    if (handler) {
        CRegWatcherThread* watcher = nullptr;
        {
            const CCritSecGuard guard(m_watcherLock, __LINE__);
            watcher = m_pWatcherThread;
        }
        if (watcher && !watcher->isInherited()) {
            watcher->clrRegistryChangeHandler(handler);
        }
    }
    REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::ClrRegistryChangeHandler\n");
}

}  // namespace VQRegLib
