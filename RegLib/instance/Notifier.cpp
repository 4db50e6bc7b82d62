// Notifications: how a process learns that another one has changed something.
//
// Each process that has a handler owns one semaphore, named by its process id, and one thread that waits
// on it. A sender releases every semaphore whose name begins as these do, its own process's too. Nothing
// else is sent: who wakes up wakes its watchers, and these look at their files.
//
// Nobody can be relied upon here. A process may die and leave its semaphore, so it holds a lock as its
// owner, and a sender takes away ownerless ones of which no process is in sight (Semaphore.cpp). A program
// may close all its descriptors and with them that lock, and may be taken for dead by a sender in another
// container: so the thread looks every few seconds, and whenever it is woken, whether the name is still its
// own, and takes it again if not. Another user may sit on the name before this process starts: then it
// cannot be notified, says so once in the log, and its watchers still look every minute.
//
// A registration waits until the semaphore is there, so that a change made right afterwards is not
// missed. It waits outside of the directory's lock where somebody else may be slow, and within it only
// for its own thread to start.
#include "RegLib/instance/Notifier.h"

#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "RegLib/base/CritSecGuard.h"
#include "RegLib/base/Guarded.h"
#include "RegLib/base/ThrowPoint.h"
#include "RegLib/instance/Directory.h"
#include "RegLib/text/NotificationName.h"
#include "RegLib/trace/Contained.h"
#include "RegLib/trace/Trace.h"
#include "RegLib/watch/Watcher.h"
#include "portable/NamedObjects.h"
#include "portable/PlainMutex.h"
#include "portable/Portable.h"
#include "portable/Semaphore.h"

namespace VQRegLib {

namespace {

constexpr unsigned long kPollMilliseconds = 100;
constexpr unsigned long kLookMilliseconds = 5000;  // how late a lost name is noticed
constexpr int kFirstAttempts = 5;       // with the directory's lock held, after a wait without it
constexpr std::size_t kMostKept = 256;  // semaphores, a page each
constexpr char kThreadName[] = "CRegLibImpl::RegistryChangeNotifierThread";

// For a registration that finds the name lost.
constexpr int kReachableNaps = 100;
constexpr unsigned long kReachableNapMilliseconds = 10;

// Owner and senders make it with the same arguments, so that they reach the same object.
std::unique_ptr<CPSemaphore> makeSemaphore(const std::string& name) {
    return std::make_unique<CPSemaphore>(1, 0, 0x7fffffff, name, 1);
}

// The semaphores of all processes, as the last sender found them. As long as no name has come or gone
// they need not be looked for again.
class CNotifiedProcesses {
public:
    // All are released before any is looked at: one that seems to be nobody's may be that of a process
    // which has lost the lock, and which notices as it wakes up.
    void notify() {
        if (!m_lock.tryLock()) {
            // Another thread is at it, perhaps one that a child of fork does not have.
            CNotifiedProcesses().notify();
            return;
        }
        const CPlainGuard guard(m_lock, CPlainGuard::eAdopt);
        const CNamesMark now = CNamesMark::now();
        if (now.isUnchangedSince(m_mark)) {
            releaseKnown();
        } else {
            m_mark = CNamesMark();
            m_mark = findAndRelease() ? now : CNamesMark();
        }
        for (const std::string& name : m_names) {
            CPSemaphore::removeIfAbandoned(name);
        }
    }

private:
    using Semaphores = std::map<std::string, std::unique_ptr<CPSemaphore>>;

    // True when what was found is all there is, and worth to be kept open.
    bool findAndRelease() REQUIRES(m_lock) {
        const CPEnumNamedObjects found(kNotificationPrefix, CPEnumNamedObjects::kSemaphores);
        m_names.clear();
        Semaphores semaphores;
        bool isAll = found.isComplete();
        std::string name;
        int type = 0;
        for (int index = 0; found.enumNamedObject(index, &name, &type) != 0; ++index) {
            m_names.push_back(name);
            std::unique_ptr<CPSemaphore> semaphore = makeSemaphore(name);
            if (!semaphore->isOpen()) {
                isAll = false;
                releaseKnown(name, semaphores);
                continue;
            }
            semaphore->release();
            if (semaphore->isCreator()) {
                CPSemaphore::removeIfOwnerless(name);  // its process ended a moment ago
            } else if (semaphores.size() < kMostKept) {
                semaphores.emplace(name, std::move(semaphore));
            }
        }
        if (!found.isComplete()) {
            releaseKnown();  // some of them twice
            semaphores.merge(m_semaphores);
        }
        m_semaphores = std::move(semaphores);
        return isAll && m_semaphores.size() == m_names.size();
    }

    // A process that has no descriptor left still wakes those it knows.
    void releaseKnown() REQUIRES(m_lock) {
        for (const auto& known : m_semaphores) {
            known.second->release();
        }
    }

    void releaseKnown(const std::string& name, Semaphores& kept) REQUIRES(m_lock) {
        if (auto known = m_semaphores.extract(name)) {
            known.mapped()->release();
            kept.insert(std::move(known));
        }
    }

    CPlainMutex m_lock;
    CNamesMark m_mark GUARDED_BY(m_lock);
    std::vector<std::string> m_names GUARDED_BY(m_lock);
    Semaphores m_semaphores GUARDED_BY(m_lock);
};

}  // namespace

void releaseNotificationSemaphores() {
    static CNotifiedProcesses* const notified = new CNotifiedProcesses;  // never destroyed
    notified->notify();
}

// The thread of a parent does not exist in a child of fork.
bool CRegLibImplDirectory::hasNotifier() const {
    return m_notifierRunning.load() != 0 && m_notifierProcess.isOfThisProcess();
}

void CRegLibImplDirectory::startRegistryChangeNotifierThread() {
    if (!isNotifierStarted()) {
        // Who squats on the name delays this registration, but nobody who opens a session meanwhile.
        (void)guarded([] {
            CPSemaphore::waitUntilFree(notificationSemaphoreName(CPortable::GetCurrentProcessId()));
            return REGLIB_OK;
        });
    }
    {
        const CCritSecGuard guard(m_lock, __LINE__);
        if (!hasNotifier()) {
            startNotifier();
            return;
        }
        if (isReachable()) {
            return;
        }
        m_notificationSemaphore.load()->release();  // the thread looks after its name then
    }
    // Without the lock, which the thread takes.
    for (int nap = 0; nap < kReachableNaps && !isReachable(); ++nap) {
        CPortable::Sleep(kReachableNapMilliseconds);
    }
}

bool CRegLibImplDirectory::isNotifierStarted() {
    const CCritSecGuard guard(m_lock, __LINE__);
    return hasNotifier();
}

// False while other processes do not find the running thread's semaphore, or take it for nobody's.
bool CRegLibImplDirectory::isReachable() {
    const CCritSecGuard guard(m_lock, __LINE__);
    return !hasNotifier() || m_notificationSemaphore.load()->isOwner();
}

void CRegLibImplDirectory::startNotifier() {
    m_notifierProcess = CProcessMark();
    m_notifierThrew.store(false);
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
    if (m_notifierStarted.load() == 0 && m_notifierThrew.load()) {
        throwAt(eThrowPoint::eNewNotifierSemaphore);
    }
}

void CRegLibImplDirectory::StopRegistryChangeNotifierThread() {
    m_stopRequested.store(1);
    {
        const CCritSecGuard guard(m_lock, __LINE__);
        if (!m_notifierProcess.isOfThisProcess()) {
            return;  // a child of fork has nothing to stop, and the semaphore is its parent's
        }
        if (CPSemaphore* const semaphore = m_notificationSemaphore.load()) {
            semaphore->release();
        }
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
    const bool isContained = contained(kThreadName, this, [this] {
        if (makeNotificationSemaphore()) {
            m_notifierStarted.store(1);
            serveNotifications();
        }
    });
    m_notifierThrew.store(!isContained);
    REGLIB_TRACE(eTraceLife, "CRegLibImpl::RegistryChangeNotifierThread (0x%08X) - stopping\n",
                 traceId(this));
    m_notifierRunning.store(0);
}

// The semaphore of this process, owned; null when that is impossible. The reason is told once.
std::unique_ptr<CPSemaphore> CRegLibImplDirectory::ownSemaphore(int attempts) try {
    if (CPSemaphore::isExiting()) {
        return nullptr;
    }
    const std::string name = notificationSemaphoreName(CPortable::GetCurrentProcessId());
    auto semaphore = makeSemaphore(name);
    if (semaphore->own(attempts)) {
        m_ownFailed = false;
        return semaphore;
    }
    if (semaphore->isCreator()) {
        CPSemaphore::removeIfOwnerless(name);
    }
    if (!CPSemaphore::isExiting() && !std::exchange(m_ownFailed, true)) {
        REGLIB_TRACE(eTraceAlways,
                     "(Error) %s (0x%08X), semaphore failed, errno %d, the file is of user %ld: "
                     "\"%s\"\n",
                     kThreadName, traceId(this), semaphore->error(), CPSemaphore::userOf(name),
                     name.c_str());
    }
    return nullptr;
} catch (const std::bad_alloc&) {
    throwAt(eThrowPoint::eNewNotifierSemaphore);
}

bool CRegLibImplDirectory::makeNotificationSemaphore() {
    m_ownFailed = false;
    std::unique_ptr<CPSemaphore> semaphore = ownSemaphore(kFirstAttempts);
    m_notificationSemaphore.store(semaphore.release());  // for the rest of the process
    return m_notificationSemaphore.load() != nullptr;
}

void CRegLibImplDirectory::serveNotifications() {
    for (;;) {
        CPSemaphore* const semaphore = m_notificationSemaphore.load();
        const bool isReleased = semaphore->wait(kLookMilliseconds, nullptr);
        if (m_stopRequested.load() != 0) {
            return;
        }
        if (isReleased) {
            wakeWatchers();
        }
        if (!semaphore->isOwner()) {
            contained(kThreadName, this, [this] { ownNameAgain(); });
            wakeWatchers();  // a lost name may have lost a notification
        }
    }
}

// A program that closes all descriptors closes the lock that tells others of the owner, and the name
// may have been removed. Whatever there is under it now becomes this process's semaphore.
void CRegLibImplDirectory::ownNameAgain() {
    std::unique_ptr<CPSemaphore> semaphore = ownSemaphore(CPSemaphore::kAttempts);
    if (semaphore) {
        const CCritSecGuard guard(m_lock, __LINE__);
        semaphore.reset(m_notificationSemaphore.exchange(semaphore.release()));
    }
}

void CRegLibImplDirectory::wakeWatchers() {
    const CCritSecGuard guard(m_lock, __LINE__);
    for (const auto& entry : m_instances) {
        CRegLibImpl& store = *entry.second;
        const CCritSecGuard watcherGuard(store.m_watcherLock, __LINE__);
        if (store.m_pWatcherThread) {
            store.m_pWatcherThread->wake();
        }
    }
}

}  // namespace VQRegLib
