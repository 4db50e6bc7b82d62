// The watcher of one store: a thread, a set of handlers, and how both come to their ends.
//
// What it does is little. It sleeps on an event, for a minute at most; woken by the notifier or by the
// minute, it looks at the file's modification time, and when that is another one than before, calls every
// handler. So a change by a program that sends no notification is noticed too, late.
//
// A round calls handlers that do what they like: register others, remove themselves, open sessions, send
// notifications, destroy the last session of the very store that is calling them. Nothing of the round is
// therefore kept from one call to the next but the address of the handler called last; the next one is
// the first above it in the map as it is then. The handler lock is held for the whole round. That is what
// makes a promise possible which programs need: when the removal of a handler has returned, it is not
// running, and will not be called again. Its holder may enter it again, so a handler may remove itself.
//
// The end has three forms.
//
//  - From outside. The destructor enters the handler lock, which waits for a round, sets the flag and the
//    event, leaves the lock and waits for the thread. It must not hold it while it waits, for the thread may
//    be about to take it; and its caller must not hold the directory's lock, because a handler may be
//    waiting for that (Directory.cpp).
//  - From within. A handler destroys the last session: the destructor would run on the thread that it has
//    to wait for. end() sees that, leaves word, and returns; the store goes, the handler returns, no
//    further one is called, and the thread deletes the object as its last act.
//  - In a child of fork, which has the object without its thread, and its locks in any state. It leaves
//    both alone; the memory is small, and touching it is not safe.
//
// Exceptions end in contained(): a handler that throws costs a line in the log, and the round goes on.
#include "RegLib/watch/Watcher.h"

#include <ctime>
#include <new>

#include "RegLib/base/CritSecGuard.h"
#include "RegLib/base/ThrowPoint.h"
#include "RegLib/trace/Contained.h"
#include "RegLib/trace/Trace.h"
#include "portable/FileOps.h"
#include "portable/Portable.h"

namespace VQRegLib {

namespace {

constexpr unsigned long kLookMilliseconds = 60'000;
constexpr unsigned long kPollMilliseconds = 100;
constexpr char kThreadName[] = "CRegWatcherThread::fileWatcherThreadFunc";

}  // namespace

CRegWatcherThread::CRegWatcherThread(REGMODE mode, const std::string& name, int cli)
    : m_handlerLock("", 1), m_mode(mode), m_name(name), m_cli(cli) {
    REGLIB_TRACE(eTraceLife,
                 "CRegWatcherThread::CRegWatcherThread (0x%08X) - mode %d, name %s, cli %d\n",
                 traceId(this), m_mode, m_name.c_str(), m_cli);
    try {
        m_wakeEvent = std::make_unique<CPEvent>(1, "", 1);
    } catch (const std::bad_alloc&) {
        REGLIB_TRACE(
            eTraceAlways,
            "(Error) CRegWatcherThread::acquireRegWatcherThread (0x%08X), new CPEvent failed\n",
            traceId(this));
        throwAt(eThrowPoint::eNewWakeEvent);
    }
    m_running.store(1);
    if (CPortable::CreateThread(fileWatcherThread, this, nullptr, "") == 0) {
        m_running.store(0);
        REGLIB_TRACE(
            eTraceAlways,
            "(Error) CRegWatcherThread::acquireRegWatcherThread (0x%08X), CreateThread failed\n",
            traceId(this));
    }
}

CRegWatcherThread::~CRegWatcherThread() {
    REGLIB_TRACE(eTraceLife, "CRegWatcherThread::~CRegWatcherThread (0x%08X)\n", traceId(this));
    {
        // Once the lock is free no round is going on, and after this none begins. The thread is
        // waited for without the lock, which it may be about to take.
        const CCritSecGuard guard(m_handlerLock, __LINE__);
        m_stopRequested.store(1);
        m_wakeEvent->set(0);
    }
    while (hasThread()) {
        CPortable::Sleep(kPollMilliseconds);
    }
}

bool CRegWatcherThread::hasThread() const {
    return m_running.load() != 0 && !isInherited();
}

bool CRegWatcherThread::isInherited() const {
    return !m_process.isOfThisProcess();
}

void CRegWatcherThread::end(CRegWatcherThread* watcher) {
    if (watcher->isInherited()) {
        return;
    }
    if (watcher->hasThread() && watcher->m_threadId.load() == CPortable::GetCurrentThreadId()) {
        watcher->m_endsItself.store(true);
        watcher->m_stopRequested.store(1);
        watcher->wake();
    } else {
        delete watcher;
    }
}

void CRegWatcherThread::setRegistryChangeHandler(CRegistryChangeHandler* handler) {
    REGLIB_TRACE(eTraceFlow, "CRegWatcherThread::setRegistryChangeHandler\n");
    if (handler) {
        const CCritSecGuard guard(m_handlerLock, __LINE__);
        m_handlers[handler] = handler;
    }
}

void CRegWatcherThread::clrRegistryChangeHandler(CRegistryChangeHandler* handler) {
    REGLIB_TRACE(eTraceFlow, "CRegWatcherThread::clrRegistryChangeHandler\n");
    if (handler) {
        const CCritSecGuard guard(m_handlerLock, __LINE__);
        m_handlers.erase(handler);
    }
}

void CRegWatcherThread::wake() {
    if (m_wakeEvent) {
        m_wakeEvent->set(0);
    }
}

void CRegWatcherThread::fileWatcherThread(void* self) {
    auto* const watcher = static_cast<CRegWatcherThread*>(self);
    // Also when a handler has ended the thread under itself: others wait for this.
    const auto end = [](CRegWatcherThread* ended) { ended->threadEnds(); };
    const std::unique_ptr<CRegWatcherThread, decltype(end)> ending(watcher, end);
    contained(kThreadName, watcher, [watcher] { watcher->fileWatcherThreadFunc(); });
}

void CRegWatcherThread::threadEnds() {
    const bool endsItself = m_endsItself.load();
    m_running.store(0);  // unless it is the thread's own, the object may be gone after this
    if (endsItself) {
        delete this;
    }
}

void CRegWatcherThread::fileWatcherThreadFunc() {
    m_threadId.store(CPortable::GetCurrentThreadId());
    m_running.store(1);
    CPortable::SetCurrentThreadName("FileWatch");
    // A capital F here and a small one below: whoever searches old logs knows both.
    REGLIB_TRACE(eTraceLife, "CRegWatcherThread::FileWatcherThreadFunc (0x%08X) - starting\n",
                 traceId(this));
    std::time_t lastSeen = 0;
    CFileOps::current().readModificationTime(m_name.c_str(), lastSeen);
    for (;;) {
        (void)m_wakeEvent->wait(kLookMilliseconds, nullptr);  // woken or not, it looks
        if (m_stopRequested.load() != 0) {
            break;
        }
        std::time_t current = lastSeen;
        CFileOps::current().readModificationTime(m_name.c_str(), current);
        if (current != lastSeen) {
            REGLIB_TRACE(eTraceFlow,
                         "CRegWatcherThread::fileWatcherThreadFunc (0x%08X) - got file change\n",
                         traceId(this));
            callHandlers();
        }
        lastSeen = current;
    }
    REGLIB_TRACE(eTraceLife, "CRegWatcherThread::fileWatcherThreadFunc (0x%08X) - stopping\n",
                 traceId(this));
}

// Handlers come and go during a round: each step looks for the next address, and nothing is kept
// from one step to the other but the last one called.
void CRegWatcherThread::callHandlers() {
    const CCritSecGuard guard(m_handlerLock, __LINE__);
    auto next = m_handlers.begin();
    while (next != m_handlers.end() && m_stopRequested.load() == 0) {
        CRegistryChangeHandler* const handler = next->first;
        contained(kThreadName, this, [handler] { handler->OnRegistryChange(); });
        next = m_handlers.upper_bound(handler);
    }
}

}  // namespace VQRegLib
