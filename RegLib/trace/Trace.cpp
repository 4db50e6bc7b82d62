// The trace log.
//
// Each line goes through three doors. The level, one relaxed load where the line is written in the code:
// when its bit is off, nothing is evaluated. The gate (Gate.h), which keeps forks and lines apart. And the
// file of the day.
//
// Roll-over. At the first line after midnight, and at the first line at all, some thread has to open a
// file, and no lock may be taken for it: lines are written under every lock there is, by destructors, by
// threads that are being cancelled and between fork and exec. So one thread wins the opening, by exchanging
// one word, and writes down day and minute of the attempt; whoever comes meanwhile uses the old file, or
// waits a moment when there is none. A failed attempt is not repeated within its minute, or a full disk
// would make every line try again. Day and minute are those of the local time, which takes longer than all
// else that a line costs a process without a file, and a lock that all threads share: it is made out once in a
// second.
//
// The winner must not close the old stream: another thread may be between reading the pointer and writing.
// It puts the new file under the old one's descriptor instead (dup3). The stream object stays what it was,
// what is being written goes to yesterday's file or to today's, and never to a closed one. Only when the
// new file cannot be opened, or put there, is the old one closed, and then the winner waits for the writers
// inside, who are counted and have one line each to finish.
//
// Descriptors are not safe in programs of others. Daemons close all of theirs at start and the number may
// be a socket a moment later. Device and inode of what the library opened are remembered and compared
// before each line: a trace line in somebody's network connection is worse than a lost line.
#include "RegLib/trace/Trace.h"

#include <cstdarg>
#include <cstring>
#include <new>

#include "RegLib/trace/Echo.h"
#include "RegLib/trace/Gate.h"
#include "portable/NoCancellation.h"
#include "portable/Portable.h"

namespace VQRegLib {

std::atomic<CRegLibTrace*> g_pregLibTrace{nullptr};

}  // namespace VQRegLib

using VQRegLib::CAppendedFile;
using VQRegLib::CPortable;
using VQRegLib::CTraceGate;
using VQRegLib::g_pregLibTrace;

std::atomic<std::int32_t> CRegLibTrace::m_lLogLevel{1};
std::atomic<std::int32_t> CRegLibTrace::m_lFakeMutex{0};

namespace {

constexpr std::size_t kLineSize = 512;
constexpr std::size_t kNameSize = 254;
constexpr std::size_t kDirectoryLimit = 254;

// How long a thread waits for another one that is opening the file, so that its line is not lost.
constexpr int kOpeningNaps = 200;
constexpr unsigned long kNapMilliseconds = 1;

void compose(char (&line)[kLineSize], const char* format, std::va_list arguments) {
    CPortable::LocalTime now{};
    CPortable::GetLocalTime(&now);
    const int prefix = std::snprintf(line, sizeof line - 1, "%02d:%02d:%02d.%03d (%5d:%5d) ",
                                     now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
                                     static_cast<int>(CPortable::GetCurrentProcessId()),
                                     static_cast<int>(CPortable::GetCurrentThreadId()));
    const auto used = static_cast<std::size_t>(prefix);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has started it
    std::vsnprintf(line + used, sizeof line - used, format, arguments);
}

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

void CRegLibTrace::registerForkHandlers() {
    static const bool registered =
        CPortable::AtFork(CTraceGate::beforeFork, CTraceGate::afterForkInParent, afterForkInChild);
    (void)registered;
}

CRegLibTrace::CRegLibTrace() {
    registerForkHandlers();
    readConfiguration();
    if (m_lLogLevel.load() != 0) {
        g_pregLibTrace.store(this, std::memory_order_release);
    }
}

CRegLibTrace::~CRegLibTrace() {
    CRegLibTrace* const registered = g_pregLibTrace.exchange(nullptr);
    if (registered != this) {
        delete registered;
    }
    if (m_pFile.load() && m_opened.isThere()) {
        closeFile();
    }
}

void CRegLibTrace::setDirectory(const char* directory) {
    std::strncpy(m_directory, directory, kDirectoryLimit);
    m_directory[kDirectoryLimit] = '\0';
}

void CRegLibTrace::getCurTime(std::tm* out) {
    const std::time_t now = std::time(nullptr);
    localtime_r(&now, out);
}

// True when there is nothing to open at this time.
bool CRegLibTrace::isSettled(const std::tm& now) const {
    const Attempt last = m_lastAttempt.load();
    return last.day == now.tm_mday &&
           (m_pFile.load() ? m_opened.isThere() : last.minute == now.tm_min);
}

// As isSettled, which it asks once in a second.
bool CRegLibTrace::isSettledIn(std::time_t second) {
    if (second == m_settledSecond.load() && (!m_pFile.load() || m_opened.isThere())) {
        return true;
    }
    std::tm local{};
    localtime_r(&second, &local);
    if (!isSettled(local)) {
        return false;
    }
    m_settledSecond.store(second);
    return true;
}

// True for the one thread that is to open the file now. The others wait a little while nobody can
// write yet, so that their lines are not lost.
bool CRegLibTrace::claimOpening(std::tm* now) {
    for (int naps = 0; naps < kOpeningNaps; ++naps) {
        if (isSettledIn(std::time(nullptr)) && (m_pFile.load() || !m_opening.load())) {
            return false;
        }
        bool expected = false;
        if (!m_opening.compare_exchange_strong(expected, true)) {
            CPortable::Sleep(kNapMilliseconds);
            continue;
        }
        getCurTime(now);  // again: another thread may have been through since, and past midnight
        if (!isSettled(*now)) {
            m_settledSecond.store(kNever);
            m_lastAttempt.store({now->tm_mday, now->tm_min});
            return true;
        }
        m_opening.store(false);
    }
    return false;
}

// A child of fork has no thread that could finish an opening or a line.
void CRegLibTrace::afterForkInChild() {
    CTraceGate::afterForkInChild();
    if (CRegLibTrace* const trace = g_pregLibTrace.load()) {
        trace->m_opening.store(false);
        trace->m_writers.store(0);
    }
}

std::FILE* CRegLibTrace::openFileOfDay(const std::tm& now) const {
    char name[kNameSize];
    if (std::snprintf(name, sizeof name, "%sRegLibTrace%s-%02d%02d%02d.Log", m_directory, "",
                      now.tm_year % 100, now.tm_mon + 1, now.tm_mday) < 0) {
        return nullptr;
    }
    return CAppendedFile::open(name);
}

void CRegLibTrace::writeHeader(std::FILE* file) const try {
    std::fprintf(file, "*** Log file opened (%ld: %ld) %s %s\n", CPortable::GetCurrentProcessId(),
                 CPortable::GetCurrentThreadId(), CPortable::getExeName().c_str(),
                 CPortable::getBuildVersion().c_str());
    std::fflush(file);
} catch (const std::bad_alloc&) {
    // A file without its header is better than a program without its log.
}

// Under the descriptor of the open stream, if there is one: another thread may be writing to that,
// and is then writing to the one file or to the other, never to a closed one.
void CRegLibTrace::putInPlace(std::FILE* opened) {
    if (m_pFile.load() && m_opened.replaceBy(opened)) {
        return;
    }
    if (m_pFile.load()) {
        closeFile();
    }
    m_opened.remember(opened);
    m_pFile.store(opened);
}

void CRegLibTrace::closeFile() {
    std::FILE* const file = m_pFile.exchange(nullptr);
    while (m_writers.load() > 0) {  // these have one line each to finish; new ones find no file
        CPortable::Sleep(kNapMilliseconds);
    }
    std::fclose(file);
}

void CRegLibTrace::openTraceFile() {
    const CTraceGate::CPass pass;
    std::tm now{};
    if (!claimOpening(&now)) {
        return;
    }
    if (m_pFile.load() && !m_opened.isThere()) {
        m_pFile.store(nullptr);  // given up with its number: closing it would close a foreign file
    }
    std::FILE* opened = openFileOfDay(now);
    if (!opened && m_pFile.load()) {
        closeFile();
        opened = openFileOfDay(now);  // perhaps there was no descriptor to be had
    }
    if (opened) {
        writeHeader(opened);
        putInPlace(opened);
    }
    m_opening.store(false);
}

// False when there is no file to write to, or another one than it was a moment ago.
bool CRegLibTrace::put(const char* line) {
    ++m_writers;
    std::FILE* const file = m_pFile.load();
    const bool isOpen = file && m_opened.isThereFor(file);
    if (isOpen) {
        std::fputs(line, file);
        std::fflush(file);
    }
    --m_writers;
    return isOpen;
}

bool CRegLibTrace::write(const char* line) {
    if (put(line)) {
        return true;
    }
    openTraceFile();
    return put(line);
}

void CRegLibTrace::trace(const char* format, ...) {
    // Most machines have no directory for the log. In this order: a second in which nothing is left to open is
    // known once somebody has begun to open the file, and when he has ended the file is there or will not be.
    if (std::time(nullptr) == m_settledSecond.load() && !m_opening.load() && !m_pFile.load()) {
        return;
    }
    const VQRegLib::CNoCancellation noCancellation;  // destructors write lines too
    char line[kLineSize] = {};
    bool isWritten = false;
    {
        const CTraceGate::CPass pass;
        openTraceFile();
        if (!m_pFile.load()) {
            return;
        }
        std::va_list arguments;
        va_start(arguments, format);
        compose(line, format, arguments);
        va_end(arguments);
        isWritten = write(line);
    }
    if (isWritten && (m_lLogLevel.load() & VQRegLib::eTraceEcho)) {
        VQRegLib::echoTraceLine(line);
    }
}
