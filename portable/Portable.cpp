#include "portable/Portable.h"

#include <pthread.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>

#include "portable/ProcessMark.h"

#ifndef VQREGLIB_VERSION
#define VQREGLIB_VERSION "unknown"
#endif

namespace VQRegLib {

namespace {

struct CThreadStart {
    void (*entry)(void*);
    void* argument;
    std::string name;
};

void* runThread(void* raw) {
    const std::unique_ptr<CThreadStart> start(static_cast<CThreadStart*>(raw));
    if (!start->name.empty()) {
        CPortable::SetCurrentThreadName(start->name.c_str());
    }
    try {
        start->entry(start->argument);
    } catch (...) {
        if (!std::current_exception()) {
            throw;  // nothing that can be held: the thread is cancelled, or ends itself
        }
        // It has said so where it could; the program goes on without the thread.
    }
    return nullptr;
}

// Blocks every signal while a thread is being made: the new thread inherits the mask.
class CAllSignalsBlocked {
public:
    CAllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_old);
    }
    ~CAllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_old, nullptr); }
    CAllSignalsBlocked(const CAllSignalsBlocked&) = delete;
    CAllSignalsBlocked& operator=(const CAllSignalsBlocked&) = delete;

private:
    sigset_t m_old;
};

class CThreadAttributes {
public:
    CThreadAttributes() : m_ready(pthread_attr_init(&m_attributes) == 0) {
        if (m_ready) {
            pthread_attr_setdetachstate(&m_attributes, PTHREAD_CREATE_DETACHED);
        }
    }
    ~CThreadAttributes() {
        if (m_ready) {
            pthread_attr_destroy(&m_attributes);
        }
    }
    CThreadAttributes(const CThreadAttributes&) = delete;
    CThreadAttributes& operator=(const CThreadAttributes&) = delete;
    const pthread_attr_t* get() const { return m_ready ? &m_attributes : nullptr; }

private:
    pthread_attr_t m_attributes;
    bool m_ready;
};

// Random bytes for several numbers at a time. A child of fork must not go on with its parent's.
class CRandomBytes {
public:
    bool take(unsigned char (&bytes)[16]) {
        const std::uint32_t forks = CProcessMark::forks();
        if (m_left == 0 || m_forks != forks) {
            m_forks = forks;
            const bool isFilled = getrandom(m_bytes, sizeof m_bytes, GRND_NONBLOCK) ==
                                  static_cast<ssize_t>(sizeof m_bytes);
            m_left = isFilled ? sizeof m_bytes : 0;
        }
        if (m_left == 0) {
            return false;
        }
        m_left -= sizeof bytes;
        __builtin_memcpy(bytes, m_bytes + m_left, sizeof bytes);
        return true;
    }

private:
    unsigned char m_bytes[256];
    std::size_t m_left = 0;
    std::uint32_t m_forks = 0;
};

thread_local CRandomBytes t_random;

constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

}  // namespace

unsigned long CPortable::CreateThread(void (*entry)(void*), void* argument, unsigned long* id,
                                      const std::string& name) {
    std::unique_ptr<CThreadStart> start;
    try {
        start = std::make_unique<CThreadStart>(CThreadStart{entry, argument, name});
    } catch (const std::bad_alloc&) {
        return 0;
    }
    const CThreadAttributes attributes;
    if (!attributes.get()) {
        return 0;
    }
    const CAllSignalsBlocked blocked;
    pthread_t thread{};
    if (pthread_create(&thread, attributes.get(), runThread, start.get()) != 0) {
        return 0;
    }
    (void)start.release();  // runThread owns it now
    const auto number = static_cast<unsigned long>(thread);
    if (id) {
        *id = number;
    }
    return number != 0 ? number : 1;
}

void CPortable::SetCurrentThreadName(const char* name) {
    char shortened[16];
    std::snprintf(shortened, sizeof shortened, "%s", name);
    pthread_setname_np(pthread_self(), shortened);
}

void CPortable::Sleep(unsigned long milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000 * 1'000'000)};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

bool CPortable::AtFork(void (*before)(), void (*inParent)(), void (*inChild)()) {
    return pthread_atfork(before, inParent, inChild) == 0;
}

std::uint64_t CPortable::GetTickCountULL() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * kNanosecondsPerSecond +
           static_cast<std::uint64_t>(now.tv_nsec);
}

std::uint32_t CPortable::GetSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<std::uint32_t>(now.tv_sec);
}

void CPortable::GetLocalTime(LocalTime* time) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    time->wYear = static_cast<std::uint16_t>(local.tm_year + 1900);
    time->wMonth = static_cast<std::uint16_t>(local.tm_mon + 1);
    time->wDayOfWeek = static_cast<std::uint16_t>(local.tm_wday);
    time->wDay = static_cast<std::uint16_t>(local.tm_mday);
    time->wHour = static_cast<std::uint16_t>(local.tm_hour);
    time->wMinute = static_cast<std::uint16_t>(local.tm_min);
    time->wSecond = static_cast<std::uint16_t>(local.tm_sec);
    time->wMilliseconds = static_cast<std::uint16_t>(now.tv_nsec / 1'000'000);
}

long CPortable::GetCurrentProcessId() {
    return getpid();
}

long CPortable::GetCurrentThreadId() {
    return syscall(SYS_gettid);
}

std::int32_t CPortable::InterlockedIncrement(std::atomic<std::int32_t>* value) {
    // Unsigned: a counter that is never decremented may wrap.
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value->fetch_add(1)) + 1);
}

std::int32_t CPortable::InterlockedDecrement(std::atomic<std::int32_t>* value) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value->fetch_sub(1)) - 1);
}

char* CPortable::strlwr(char* text) {
    for (char* at = text; *at; ++at) {
        *at = foldedChar(*at);
    }
    return text;
}

std::string CPortable::itoa(long value) {
    return std::to_string(value);
}

std::string CPortable::newPUUID() {
    unsigned char bytes[16];
    if (!t_random.take(bytes)) {
        // Early at boot the kernel may have no randomness yet: time, process and a counter are
        // unique on this machine too.
        static std::atomic<std::uint32_t> counter{0};
        const std::uint64_t words[2] = {
            GetTickCountULL(), static_cast<std::uint64_t>(GetCurrentProcessId()) << 32 | ++counter};
        __builtin_memcpy(bytes, words, sizeof bytes);
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);  // a random UUID, version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += "0123456789abcdef"[bytes[i] >> 4];
        text += "0123456789abcdef"[bytes[i] & 15];
    }
    return text;
}

bool CPortable::isInEnvironment(const char* name, std::string_view value) {
    const char* const text = ::secure_getenv(name);
    return text && value == text;
}

std::string CPortable::getExeName() {
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) {
        return program_invocation_short_name;
    }
    const std::string full(path, static_cast<std::size_t>(length));
    return full.substr(full.rfind('/') + 1);
}

std::string CPortable::getBuildVersion() {
    return VQREGLIB_VERSION;
}

}  // namespace VQRegLib
