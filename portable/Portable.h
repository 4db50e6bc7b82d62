// Small services of the system under one roof: threads, time, process identity, counters, texts.
#ifndef PORTABLE_PORTABLE_H
#define PORTABLE_PORTABLE_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace VQRegLib {

class CPortable {
public:
    struct LocalTime {
        std::uint16_t wYear;
        std::uint16_t wMonth;  // 1..12
        std::uint16_t wDayOfWeek;
        std::uint16_t wDay;
        std::uint16_t wHour;
        std::uint16_t wMinute;
        std::uint16_t wSecond;
        std::uint16_t wMilliseconds;
    };

    // Starts a detached thread with all signals blocked, so that no handler of the program runs on
    // it. An exception that leaves `entry` ends the thread and nothing else. `id`, when not null,
    // receives a number for the thread. Returns 0 when there is no thread.
    [[nodiscard]] static unsigned long CreateThread(void (*entry)(void*), void* argument,
                                                    unsigned long* id, const std::string& name);
    // The kernel keeps the first 15 bytes.
    static void SetCurrentThreadName(const char* name);
    static void Sleep(unsigned long milliseconds);

    // What is to be done before each fork of the process, and after it in the parent and in the child.
    // The last that was registered goes first before a fork, and last after it. Null is nothing. False
    // when there is no memory for it.
    [[nodiscard]] static bool AtFork(void (*before)(), void (*inParent)(), void (*inChild)());

    // Nanoseconds of the machine's clock: the same for every process, whatever its namespaces.
    static std::uint64_t GetTickCountULL();
    // Seconds of a clock that is never set, for telling that time has passed. Costs next to nothing.
    static std::uint32_t GetSeconds();
    // The second that the machine's clock shows. It may be set at any time, and still tells that some time
    // has passed by being another one; the system keeps it where it can be read like any other word. Never
    // more than 0x7FFFFFFF.
    static std::uint32_t GetSecondShown() {
        return static_cast<std::uint32_t>(std::time(nullptr)) & 0x7FFFFFFF;
    }
    static void GetLocalTime(LocalTime* time);

    static long GetCurrentProcessId();
    static long GetCurrentThreadId();

    static std::int32_t InterlockedIncrement(std::atomic<std::int32_t>* value);
    static std::int32_t InterlockedDecrement(std::atomic<std::int32_t>* value);

    // Folds the letters A to Z in place; every other byte stays. Returns its argument.
    static char* strlwr(char* text);
    static constexpr char foldedChar(char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    static std::string itoa(long value);

    // A text that no other call on any machine returns, fit for a file name.
    static std::string newPUUID();

    // True when the environment has the variable with exactly this value, and its word may be taken: not
    // in a program that has rights which the caller does not have.
    static bool isInEnvironment(const char* name, std::string_view value);

    static std::string getExeName();
    static std::string getBuildVersion();
};

}  // namespace VQRegLib

#endif  // PORTABLE_PORTABLE_H
