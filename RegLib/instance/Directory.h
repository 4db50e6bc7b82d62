// The one directory of a process's stores.
#ifndef REGLIB_INSTANCE_DIRECTORY_H
#define REGLIB_INSTANCE_DIRECTORY_H

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "RegLib/store/Store.h"
#include "VQRegLib.h"
#include "portable/CritSec.h"
#include "portable/ProcessMark.h"
#include "portable/ThreadAnnotations.h"

namespace VQRegLib {

class CPSemaphore;

// Makes sessions that name the same store share it. A store is constructed and destroyed under the
// directory's lock, one with a watcher destroyed after it. The lock is re-entrant: the first store of a
// process makes the trace object, and that opens a session of its own.
class CRegLibImplDirectory {
public:
    CRegLibImplDirectory();
    CRegLibImplDirectory(const CRegLibImplDirectory&) = delete;
    CRegLibImplDirectory& operator=(const CRegLibImplDirectory&) = delete;

    // The store of that name and root key with one more reference; null when it cannot be made.
    CRegLibImpl* acquireRegLibImpl(const char* name, const char* key, CRegLib::LOCATION location,
                                   int* result);

    // Drops a reference; the last one destroys the store.
    void releaseRegLibImpl(CRegLibImpl* impl);

    // What tells stores apart: the texts as they are given, so that two spellings of one path make
    // two stores, which share the file like two processes.
    static std::string getTuple(const char* name, const char* key);

    // False in a child whose parent could not wait until another thread had left the directory: it may
    // be half changed there, and so may what it leads to. Nothing may be used then.
    static bool isUsable() { return !m_isInheritedHalfChanged.load(std::memory_order_relaxed); }

    // Around a fork, so that the child inherits neither this lock nor g_mutexGlobals taken.
    static void prepareFork() NO_THREAD_SAFETY_ANALYSIS;
    static void afterForkInParent() NO_THREAD_SAFETY_ANALYSIS;
    static void afterForkInChild() NO_THREAD_SAFETY_ANALYSIS;

    // Starts the thread that wakes the watchers of this process when another process announces a
    // change, and waits until it can be reached. Without the thread, handlers are called when their
    // watcher looks by itself. Throws VQException when the thread had no memory for its semaphore.
    void startRegistryChangeNotifierThread();
    void StopRegistryChangeNotifierThread();

private:
    void dropInheritedUpdates() REQUIRES(m_lock);
    static void RegistryChangeNotifierThread(void* directory);
    bool hasNotifier() const REQUIRES(m_lock);
    bool isNotifierStarted();
    bool isReachable();
    void startNotifier() REQUIRES(m_lock);
    void RegistryChangeNotifierThreadFunc();
    std::unique_ptr<CPSemaphore> ownSemaphore(int attempts);
    bool makeNotificationSemaphore();
    void serveNotifications();
    void ownNameAgain();
    void wakeWatchers();

    static std::atomic<bool> m_isInheritedHalfChanged;
    CPCritSec m_lock;
    std::map<std::string, CRegLibImpl*> m_instances GUARDED_BY(m_lock);
    std::atomic<CPSemaphore*> m_notificationSemaphore{nullptr};  // replaced under m_lock
    std::atomic<std::uint32_t> m_stopRequested{0};
    std::atomic<std::uint32_t> m_notifierStarted{0};
    std::atomic<std::uint32_t> m_notifierRunning{0};
    std::atomic<bool> m_notifierThrew{false};
    bool m_ownFailed = false;  // and that was told; only the notifier thread uses it
    CProcessMark m_notifierProcess GUARDED_BY(m_lock);  // whose thread it is
};

// Guards the creation of the directory and nothing else.
extern pthread_mutex_t g_mutexGlobals;

// Null until its first use; never destroyed, because threads may outlive any order of destruction.
extern CRegLibImplDirectory* g_preglibImplDirectory;

// Throws VQException when the directory cannot be allocated.
CRegLibImplDirectory* get_reglibImplDirectory();

}  // namespace VQRegLib

#endif  // REGLIB_INSTANCE_DIRECTORY_H
