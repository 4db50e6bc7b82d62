// The trace log of the process: one file a day, one line per event.
#ifndef REGLIB_TRACE_TRACE_H
#define REGLIB_TRACE_TRACE_H

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "portable/AppendedFile.h"

namespace VQRegLib {

// The bits of CRegLibTrace::m_lLogLevel.
enum eTraceBit : std::int32_t {
    eTraceChange = 1,   // changes made to a store
    eTraceEcho = 2,     // every line goes to standard output as well
    eTraceLife = 4,     // construction and destruction of stores, watchers and threads
    eTraceFlow = 8,     // entry and exit of operations
    eTraceImport = 16,  // each line read from the configuration file
    eTraceAlways = 0    // "(Error) " lines, whatever the level
};

}  // namespace VQRegLib

class CRegLibTrace {
public:
    // Makes the process's trace object; only the first call of a process does anything.
    static void createInstance();

    // A fork waits for the lines that are being written. A lock that a fork waits for too must
    // register its own handlers after this: who holds it may be about to write a line.
    static void registerForkHandlers();

    // Reads the level, which it sets to 1 where it is missing, and sets the directory. Registers the
    // object unless the level is 0.
    CRegLibTrace();
    ~CRegLibTrace();
    CRegLibTrace(const CRegLibTrace&) = delete;
    CRegLibTrace& operator=(const CRegLibTrace&) = delete;

    // Writes one line; the format brings its own line end. May be called by any thread.
    void trace(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Opens the file of the day unless it is open. A failed open is tried again in another minute.
    void openTraceFile();
    void getCurTime(std::tm* out);

    static std::atomic<std::int32_t> m_lLogLevel;
    static std::atomic<std::int32_t> m_lFakeMutex;  // counts the calls of createInstance

private:
    // When the file was last opened or tried. Aligned so that it is one word to every compiler.
    struct alignas(std::int64_t) Attempt {
        std::int32_t day;
        std::int32_t minute;
    };

    // Reads the value "RegLibLogging" through a session. Defined above the store, in
    // session/TraceConfig.cpp: the one place where the trace log depends on what it traces.
    void readConfiguration();

    void setDirectory(const char* directory);
    static void afterForkInChild();
    bool isSettled(const std::tm& now) const;
    bool isSettledIn(std::time_t second);
    bool claimOpening(std::tm* now);
    std::FILE* openFileOfDay(const std::tm& now) const;
    void writeHeader(std::FILE* file) const;
    void putInPlace(std::FILE* opened);
    void closeFile();
    bool put(const char* line);
    bool write(const char* line);

    // Changed only by the thread that has claimed the opening.
    std::atomic<std::FILE*> m_pFile{nullptr};
    std::atomic<Attempt> m_lastAttempt{Attempt{0, 0}};
    static_assert(std::atomic<Attempt>::is_always_lock_free);
    static constexpr std::int64_t kNever = -1;
    std::atomic<std::int64_t> m_settledSecond{kNever};  // in which there was nothing to open
    char m_directory[256] = {};
    std::atomic<bool> m_opening{false};
    std::atomic<int> m_writers{0};     // threads that may be using m_pFile
    VQRegLib::CAppendedFile m_opened;  // what the library last put there
};

namespace VQRegLib {

// The process's trace object; null while tracing is off or not yet configured.
extern std::atomic<CRegLibTrace*> g_pregLibTrace;

// The object to write a line of this kind to, or null when it is not to be written. The level comes
// first: most lines are off by it in a process that has the object.
inline CRegLibTrace* traceFor(eTraceBit bit) {
    if (bit != eTraceAlways && !(CRegLibTrace::m_lLogLevel.load(std::memory_order_relaxed) & bit)) {
        return nullptr;
    }
    return g_pregLibTrace.load(std::memory_order_acquire);
}

// How an object is named in a line: by the low 32 bits of its address.
inline std::uint32_t traceId(const void* object) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(object));
}

inline const char* traceText(const char* text) {
    return text ? text : "(null)";
}

}  // namespace VQRegLib

// Writes a line when lines of its kind are on; evaluates nothing otherwise.
#define REGLIB_TRACE(bit, ...)                                                           \
    do {                                                                                 \
        if (CRegLibTrace* const regLibTrace_ = ::VQRegLib::traceFor(bit)) [[unlikely]] { \
            regLibTrace_->trace(__VA_ARGS__);                                            \
        }                                                                                \
    } while (false)

#endif  // REGLIB_TRACE_TRACE_H
