#include "RegLib/trace/Trace.h"

#include <pthread.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstring>
#include <new>

#include "RegLib/trace/Echo.h"
#include "portable/NoCancellation.h"
#include "portable/Portable.h"

namespace VQRegLib {

std::atomic<CRegLibTrace*> g_pregLibTrace{nullptr};

}  // namespace VQRegLib

using VQRegLib::CPortable;
using VQRegLib::g_pregLibTrace;

std::atomic<std::int32_t> CRegLibTrace::m_lLogLevel{1};
std::atomic<std::int32_t> CRegLibTrace::m_lFakeMutex{0};

namespace {

constexpr std::size_t kLineSize = 512;
constexpr std::size_t kNameSize = 254;
constexpr std::size_t kDirectoryLimit = 254;

// How long a thread waits for another one that is opening the file, so that its line is not lost.
constexpr int kOpeningNaps = 200;
constexpr unsigned long kOpeningNapMilliseconds = 1;

}  // namespace

void CRegLibTrace::createInstance() {
    if (CPortable::InterlockedIncrement(&m_lFakeMutex) != 1 || g_pregLibTrace.load()) {
        return;
    }
    // It registers itself. With level 0 it does not, and is of no further use to anybody.
    auto* const trace = new (std::nothrow) CRegLibTrace;
    if (trace != g_pregLibTrace.load()) {
        delete trace;
    }
}

CRegLibTrace::CRegLibTrace() {
    readConfiguration();
    if (m_lLogLevel.load() != 0) {
        g_pregLibTrace.store(this, std::memory_order_release);
        pthread_atfork(nullptr, nullptr, afterForkInChild);
    }
}

CRegLibTrace::~CRegLibTrace() {
    CRegLibTrace* const registered = g_pregLibTrace.exchange(nullptr);
    if (registered != this) {
        delete registered;
    }
    for (std::FILE* const file : {m_pFile.exchange(nullptr), m_pRetiredFile}) {
        if (file) {
            std::fclose(file);
        }
    }
}

void CRegLibTrace::setDirectory(const char* directory) {
    std::strncpy(m_szDirectory, directory, kDirectoryLimit);
    m_szDirectory[kDirectoryLimit] = '\0';
}

void CRegLibTrace::getCurTime(std::tm* out) {
    const std::time_t now = std::time(nullptr);
    localtime_r(&now, out);
}

// True when there is nothing to open at this time.
bool CRegLibTrace::isSettled(const std::tm& now) const {
    const Attempt last = m_lastAttempt.load();
    return last.day == now.tm_mday && (m_pFile.load() || last.minute == now.tm_min);
}

// True for the one thread that is to open the file now. The others wait a little while nobody can
// write yet, so that their lines are not lost.
bool CRegLibTrace::claimOpening(std::tm* now) {
    for (int naps = 0; naps < kOpeningNaps; ++naps) {
        getCurTime(now);
        if (isSettled(*now) && (m_pFile.load() || !m_opening.load())) {
            return false;
        }
        bool expected = false;
        if (!m_opening.compare_exchange_strong(expected, true)) {
            CPortable::Sleep(kOpeningNapMilliseconds);
            continue;
        }
        getCurTime(now);  // again: another thread may have been through since, and past midnight
        if (!isSettled(*now)) {
            m_lastAttempt.store({now->tm_mday, now->tm_min});
            return true;
        }
        m_opening.store(false);
    }
    return false;
}

// A child of fork has no thread that could finish an opening.
void CRegLibTrace::afterForkInChild() {
    if (CRegLibTrace* const trace = g_pregLibTrace.load()) {
        trace->m_opening.store(false);
    }
}

std::FILE* CRegLibTrace::openFileOfDay(const std::tm& now) const {
    char name[kNameSize];
    if (std::snprintf(name, sizeof name, "%sRegLibTrace%s-%02d%02d%02d.Log", m_szDirectory, "",
                      now.tm_year % 100, now.tm_mon + 1, now.tm_mday) < 0) {
        return nullptr;
    }
    std::FILE* const file = std::fopen(name, "a+e");
    chmod(name, 0666);
    return file;
}

void CRegLibTrace::writeHeader(std::FILE* file) const try {
    std::fprintf(file, "*** Log file opened (%ld: %ld) %s %s\n", CPortable::GetCurrentProcessId(),
                 CPortable::GetCurrentThreadId(), CPortable::getExeName().c_str(),
                 CPortable::getBuildVersion().c_str());
    std::fflush(file);
} catch (const std::bad_alloc&) {
    // A file without its header is better than a program without its log.
}

void CRegLibTrace::openTraceFile() {
    std::tm now{};
    if (!claimOpening(&now)) {
        return;
    }
    std::FILE* const opened = openFileOfDay(now);
    if (opened) {
        writeHeader(opened);
    }
    std::FILE* const previous = m_pFile.exchange(opened);
    if (previous) {
        if (m_pRetiredFile) {
            std::fclose(m_pRetiredFile);
        }
        m_pRetiredFile = previous;
    }
    m_opening.store(false);
}

void CRegLibTrace::trace(const char* format, ...) {
    const VQRegLib::CNoCancellation noCancellation;  // destructors write lines too
    openTraceFile();
    std::FILE* const file = m_pFile.load();
    if (!file) {
        return;
    }
    char line[kLineSize] = {};
    CPortable::LocalTime now{};
    CPortable::GetLocalTime(&now);
    const int prefix = std::snprintf(line, sizeof line - 1, "%02d:%02d:%02d.%03d (%5d:%5d) ",
                                     now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
                                     static_cast<int>(CPortable::GetCurrentProcessId()),
                                     static_cast<int>(CPortable::GetCurrentThreadId()));
    const auto used = static_cast<std::size_t>(prefix);
    std::va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
    std::vsnprintf(line + used, sizeof line - used, format, arguments);
    va_end(arguments);
    std::fputs(line, file);
    std::fflush(file);
    if (m_lLogLevel.load() & VQRegLib::eTraceEcho) {
        VQRegLib::echoTraceLine(line);
    }
}
