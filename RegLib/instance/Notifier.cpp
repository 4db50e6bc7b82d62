#include "RegLib/instance/Notifier.h"

#include <cstdio>
#include <memory>
#include <new>

#include "RegLib/base/CritSecGuard.h"
#include "RegLib/base/ThrowPoint.h"
#include "RegLib/instance/Directory.h"
#include "RegLib/instance/Watcher.h"
#include "RegLib/trace/Trace.h"
#include "portable/NamedObjects.h"
#include "portable/Portable.h"
#include "portable/Semaphore.h"

namespace VQRegLib {

namespace {

constexpr char kPrefix[] = "REG-CHANGENOTIF-SEM-BF96420F-BEA8-4a58-AA2E-FA2A7AE7F5A5-";
constexpr unsigned long kPollMilliseconds = 100;

// Owner and senders make it with the same arguments, so that they reach the same object.
std::unique_ptr<CPSemaphore> makeSemaphore(const std::string& name) {
    return std::make_unique<CPSemaphore>(1, 0, 0x7fffffff, name, 1);
}

}  // namespace

std::string notificationSemaphoreName(long pid) {
    char digits[15];
    // At least four digits; far from the limit.
    (void)std::snprintf(digits, sizeof digits, "%04d", static_cast<int>(pid));
    return std::string(kPrefix) + digits;
}

void releaseNotificationSemaphores() {
    const CPEnumNamedObjects semaphores(kPrefix, CPEnumNamedObjects::kSemaphores);
    std::string name;
    int type = 0;
    for (int index = 0; semaphores.enumNamedObject(index, &name, &type) != 0; ++index) {
        const std::unique_ptr<CPSemaphore> semaphore = makeSemaphore(name);
        if (!semaphore->isOpen()) {
            continue;
        }
        semaphore->release();
        if (semaphore->isCreator()) {
            CPSemaphore::removeIfOwnerless(name);  // its process ended a moment ago
        }
    }
}

// The thread of a parent does not exist in a child of fork.
bool CRegLibImplDirectory::hasNotifier() const {
    return m_notifierRunning.load() != 0 && m_notifierProcess.isOfThisProcess();
}

void CRegLibImplDirectory::startRegistryChangeNotifierThread() {
    const CCritSecGuard guard(*m_pLock, __LINE__);
    if (hasNotifier()) {
        return;
    }
    m_notifierProcess = CProcessMark();
    m_notifierStarted.store(0);
    m_notifierRunning.store(1);
    if (CPortable::CreateThread(RegistryChangeNotifierThread, this, nullptr, "") == 0) {
        m_notifierRunning.store(0);
        REGLIB_TRACE(
            eTraceAlways,
            "(Error) CRegLibImpl::startRegistryChangeNotifierThread (0x%08X), CreateThread "
            "failed\n",
            traceId(this));
        return;
    }
    // The thread ends without having started when it cannot make its semaphore.
    while (m_notifierStarted.load() == 0 && m_notifierRunning.load() != 0) {
        CPortable::Sleep(kPollMilliseconds);
    }
}

void CRegLibImplDirectory::StopRegistryChangeNotifierThread() {
    m_stopRequested.store(1);
    {
        const CCritSecGuard guard(*m_pLock, __LINE__);
        if (!m_notifierProcess.isOfThisProcess()) {
            return;  // a child of fork has nothing to stop, and the semaphore is its parent's
        }
    }
    if (CPSemaphore* const semaphore = m_pNotificationSemaphore.load()) {
        semaphore->release();
    }
    while (m_notifierRunning.load() != 0) {
        CPortable::Sleep(kPollMilliseconds);
    }
}

void CRegLibImplDirectory::RegistryChangeNotifierThread(void* directory) {
    static_cast<CRegLibImplDirectory*>(directory)->RegistryChangeNotifierThreadFunc();
}

void CRegLibImplDirectory::RegistryChangeNotifierThreadFunc() {
    CPortable::SetCurrentThreadName("RegChgNotif");
    REGLIB_TRACE(eTraceLife, "CRegLibImpl::RegistryChangeNotifierThread (0x%08X) - starting\n",
                 traceId(this));
    m_notifierRunning.store(1);
    if (makeNotificationSemaphore()) {
        m_notifierStarted.store(1);
        CPSemaphore* const semaphore = m_pNotificationSemaphore.load();
        while (semaphore->wait(CPSemaphore::kInfinite, nullptr) && m_stopRequested.load() == 0) {
            wakeWatchers();
        }
    }
    REGLIB_TRACE(eTraceLife, "CRegLibImpl::RegistryChangeNotifierThread (0x%08X) - stopping\n",
                 traceId(this));
    m_notifierRunning.store(0);
}

bool CRegLibImplDirectory::makeNotificationSemaphore() {
    std::unique_ptr<CPSemaphore> semaphore;
    try {
        semaphore = makeSemaphore(notificationSemaphoreName(CPortable::GetCurrentProcessId()));
    } catch (const std::bad_alloc&) {
        throwAt(eThrowPoint::eNewNotifierSemaphore);
    }
    if (!semaphore->own()) {
        REGLIB_TRACE(
            eTraceAlways,
            "(Error) CRegLibImpl::RegistryChangeNotifierThread (0x%08X), semaphore failed, "
            "errno %d\n",
            traceId(this), semaphore->error());
        return false;
    }
    m_pNotificationSemaphore.store(semaphore.release());  // for the rest of the process
    return true;
}

void CRegLibImplDirectory::wakeWatchers() {
    const CCritSecGuard guard(*m_pLock, __LINE__);
    for (const auto& entry : m_mapInstances) {
        CRegLibImpl& store = *entry.second;
        const CCritSecGuard watcherGuard(store.m_watcherLock, __LINE__);
        if (store.m_pWatcherThread) {
            store.m_pWatcherThread->wake();
        }
    }
}

}  // namespace VQRegLib
