// The directory of stores, and what a fork does to a process that uses the library.
//
// Sessions of the same file and root key share one store; the directory counts them under its lock. The
// directory itself is made once, under g_mutexGlobals, and never destroyed: threads of the library may
// still use it while static objects of the program are being destroyed. The directory's lock may be
// taken again by its holder, because the construction of a store reads the trace level, which opens a
// session; the other one, because a fork handler of the program may open one while it is held.
//
// A store is destroyed under the lock as well, unless it has a watcher. The end of a watcher waits for
// its round, a handler in that round may be opening a session, and that takes the directory's lock. Such a
// store leaves the map first and is destroyed after the lock has been left.
//
// Fork. A child has one thread and all the memory, as it was at that instant: every lock that another
// thread held is held in the child for ever, and every structure that one was changing is half changed. The
// library cannot make that go away, but it can choose the instant. Before the fork its handler takes the
// creation lock and the directory's lock, so that no store is being opened or closed; the trace gate and
// the registry of mutexes have handlers of their own, registered before these, and so run after these.
// Threads that merely query hold only their store's session lock, and a child inherits that as it is:
// stores that only the forking thread uses are whole, and of the others the documents warn.
//
// The fork waits for the directory's lock 200 ms and no longer: a thread that is opening a store may be
// waiting for the file's lock, and the forking thread may be its holder. Without the lock the child has
// inherited a directory that may be half changed, says so in one word (m_isInheritedHalfChanged), and
// refuses every call: a child that cannot use the library is better than one that crashes.
//
// Afterwards the child drops what was its parent's alone: the updates that were open, the threads, which
// do not exist in it, and the lock files (Mutex.cpp).
#include "RegLib/instance/Directory.h"

#include <memory>
#include <new>
#include <utility>

#include "RegLib/base/CritSecGuard.h"
#include "RegLib/base/ThrowPoint.h"
#include "RegLib/file/FileStore.h"
#include "RegLib/trace/Trace.h"
#include "portable/Mutex.h"
#include "portable/NoCancellation.h"
#include "portable/Portable.h"

namespace VQRegLib {

pthread_mutex_t g_mutexGlobals = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
CRegLibImplDirectory* g_preglibImplDirectory = nullptr;

namespace {

constexpr char kLockName[] = "CRegLibImplDirectory";

enum eLocation : int { eAcquire = 1, eRelease = 2, eFork = 3 };

// What a store calls that gets a handler.
void startNotifierOfProcess() {
    get_reglibImplDirectory()->startRegistryChangeNotifierThread();
}

class CGlobalsGuard {
public:
    CGlobalsGuard() { pthread_mutex_lock(&g_mutexGlobals); }
    ~CGlobalsGuard() { pthread_mutex_unlock(&g_mutexGlobals); }
    CGlobalsGuard(const CGlobalsGuard&) = delete;
    CGlobalsGuard& operator=(const CGlobalsGuard&) = delete;
};

}  // namespace

CRegLibImplDirectory* get_reglibImplDirectory() {
    const CGlobalsGuard guard;
    if (!g_preglibImplDirectory) {
        try {
            // First, which makes them the last before a fork: whoever holds the directory's lock may
            // be making a mutex or writing a line.
            CRegLibTrace::registerForkHandlers();
            CPMutex::registerForkHandlers();
            g_preglibImplDirectory = new CRegLibImplDirectory;
            // Without memory for that only a child of a fork at a bad moment is worse off.
            (void)CPortable::AtFork(CRegLibImplDirectory::prepareFork,
                                    CRegLibImplDirectory::afterForkInParent,
                                    CRegLibImplDirectory::afterForkInChild);
        } catch (const std::bad_alloc&) {
            throwAt(eThrowPoint::eNewDirectory);
        }
    }
    return g_preglibImplDirectory;
}

std::atomic<bool> CRegLibImplDirectory::m_isInheritedHalfChanged{false};

CRegLibImplDirectory::CRegLibImplDirectory() : m_lock(kLockName, 1) {}

namespace {

// A store that another thread is constructing may wait for a file's lock, and that may be held by
// the very thread that forks; so a fork waits only a little. Its child then cannot use the library.
constexpr int kForkNaps = 200;
constexpr unsigned long kForkNapMilliseconds = 1;

thread_local bool t_holdsLockForFork = false;

}  // namespace

// The three together are one holding, from before the fork to after it, and there may be none.
void CRegLibImplDirectory::prepareFork() {
    pthread_mutex_lock(&g_mutexGlobals);
    for (int naps = 0; naps < kForkNaps && !t_holdsLockForFork; ++naps) {
        t_holdsLockForFork = g_preglibImplDirectory->m_lock.tryEnter(eFork);
        if (!t_holdsLockForFork) {
            CPortable::Sleep(kForkNapMilliseconds);
        }
    }
}

void CRegLibImplDirectory::afterForkInParent() {
    if (std::exchange(t_holdsLockForFork, false)) {
        g_preglibImplDirectory->m_lock.leave(eFork);
    }
    pthread_mutex_unlock(&g_mutexGlobals);
}

void CRegLibImplDirectory::afterForkInChild() {
    const bool isWhole = std::exchange(t_holdsLockForFork, false);
    // It may belong to the forking thread under the id that this has in the parent, which is refused
    // to leave it here.
    if (pthread_mutex_unlock(&g_mutexGlobals) != 0) {
        g_mutexGlobals = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    }
    CRegLibImplDirectory& directory = *g_preglibImplDirectory;
    if (isWhole) {
        directory.dropInheritedUpdates();
        directory.m_lock.leave(eFork);
    } else {
        m_isInheritedHalfChanged.store(true);
    }
}

void CRegLibImplDirectory::dropInheritedUpdates() {
    for (const auto& entry : m_instances) {
        entry.second->dropInheritedUpdate();
    }
}

std::string CRegLibImplDirectory::getTuple(const char* name, const char* key) {
    std::string tuple = name ? "FILE:" : "REG:";
    tuple += name ? name : "";
    tuple += ':';
    tuple += key ? key : "<DEFAULT>";
    return tuple;
}

CRegLibImpl* CRegLibImplDirectory::acquireRegLibImpl(const char* name, const char* key,
                                                     CRegLib::LOCATION location, int* result) {
    REGLIB_TRACE(
        eTraceFlow,
        "CRegLibImpl::CRegLibImplDirectory::acquireRegLibImpl (0x%08X) - name %s, key %s\n",
        traceId(this), traceText(name), traceText(key));
    if (!isUsable()) {
        return nullptr;
    }
    const CNoCancellation noCancellation;
    const CCritSecGuard guard(m_lock, eAcquire);
    try {
        const std::string tuple = getTuple(name, key);
        const auto found = m_instances.find(tuple);
        if (found != m_instances.end()) {
            ++found->second->m_lRefCount;
            if (result) {
                *result = found->second->m_nResult;
            }
            return found->second;
        }
        auto store = std::make_unique<CRegLibImplFile>(name, key, location, result);
        store->m_lRefCount = 1;
        store->m_strTuple = tuple;
        store->m_startNotifier = startNotifierOfProcess;
        // The trace object's own session may have come and gone under the same tuple meanwhile.
        m_instances[tuple] = store.get();
        return store.release();
    } catch (...) {
        return nullptr;  // the session shows it: it has no store
    }
}

void CRegLibImplDirectory::releaseRegLibImpl(CRegLibImpl* impl) {
    if (!isUsable()) {
        return;
    }
    const CNoCancellation noCancellation;
    // Ends after the guard. A store with a watcher is destroyed without the directory's lock: its
    // end waits for handlers, and one of them may be opening a session.
    std::unique_ptr<CRegLibImpl> watched;
    const CCritSecGuard guard(m_lock, eRelease);
    const auto found = m_instances.find(impl->m_strTuple);
    if (found == m_instances.end()) {
        return;
    }
    if (--impl->m_lRefCount == 0) {
        std::unique_ptr<CRegLibImpl> ended(impl);
        if (impl->hasWatcher()) {
            watched = std::move(ended);
        }
        ended.reset();
        m_instances.erase(found);
    }
}

}  // namespace VQRegLib
