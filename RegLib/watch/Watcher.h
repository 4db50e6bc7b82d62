// Watches a store's file and calls the change handlers.
#ifndef REGLIB_WATCH_WATCHER_H
#define REGLIB_WATCH_WATCHER_H

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "VQRegLib.h"
#include "portable/CritSec.h"
#include "portable/Event.h"
#include "portable/ProcessMark.h"
#include "portable/ThreadAnnotations.h"

namespace VQRegLib {

enum REGMODE : std::int32_t { eRegModeFile = 2 };  // recorded and traced only

// One per store that has had a handler. Its thread looks at the file's modification time when it is
// woken, and every minute. Handlers are called on that thread with the handler lock entered, so
// registering or removing one from another thread waits for the round to end.
class CRegWatcherThread {
public:
    // Throws VQException when the event cannot be made. When the thread cannot, handlers may be
    // registered but are never called.
    CRegWatcherThread(REGMODE mode, const std::string& name, int cli);

    // Waits for a round to end, and for the thread.
    ~CRegWatcherThread();
    CRegWatcherThread(const CRegWatcherThread&) = delete;
    CRegWatcherThread& operator=(const CRegWatcherThread&) = delete;

    // Destroys a watcher. Called by one of its own handlers, it leaves that to the thread, which
    // calls no further handler.
    static void end(CRegWatcherThread* watcher);

    // A child of fork has inherited the object without its thread, and its locks as they were: it
    // must leave the object alone.
    bool isInherited() const;

    void setRegistryChangeHandler(CRegistryChangeHandler* handler);
    void clrRegistryChangeHandler(CRegistryChangeHandler* handler);
    void wake();

private:
    static void fileWatcherThread(void* self);
    void fileWatcherThreadFunc();
    void threadEnds();
    void callHandlers();
    bool hasThread() const;

    CPCritSec m_handlerLock;
    std::map<CRegistryChangeHandler*, CRegistryChangeHandler*> m_handlers GUARDED_BY(m_handlerLock);
    const REGMODE m_mode;
    const std::string m_name;
    const std::int32_t m_cli;
    std::atomic<std::uint32_t> m_stopRequested{0};
    std::atomic<std::uint32_t> m_running{0};
    std::unique_ptr<CPEvent> m_wakeEvent;

    const CProcessMark m_process;  // a child of fork has the object but not the thread
    std::atomic<long> m_threadId{0};
    std::atomic<bool> m_endsItself{false};  // the thread destroys the object
};

}  // namespace VQRegLib

#endif  // REGLIB_WATCH_WATCHER_H
