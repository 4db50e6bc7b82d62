// Numbers for the threads of the process.
#ifndef PORTABLE_THREADNUMBER_H
#define PORTABLE_THREADNUMBER_H

#include <cstdint>

namespace VQRegLib {

// 0 until the thread has been given one. Found without a call: locks ask for it at every operation.
extern constinit thread_local std::uint64_t t_threadNumber
    __attribute__((tls_model("initial-exec")));

// Gives the calling thread its number.
std::uint64_t numberThisThread();

// Never 0 and never that of another thread, not even of one that has ended: pthread_self would not
// do, the thread that follows one that died holding a lock may be given the same value. In a child of
// fork the thread that forked has its number still.
inline std::uint64_t currentThreadNumber() {
    const std::uint64_t number = t_threadNumber;
    return number != 0 ? number : numberThisThread();
}

// The same for who has no time for a call: 0 until currentThreadNumber was asked for.
inline std::uint64_t knownThreadNumber() {
    return t_threadNumber;
}

}  // namespace VQRegLib

#endif  // PORTABLE_THREADNUMBER_H
