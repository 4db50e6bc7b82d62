// Leases of files, which whoever may open them has to wait for.
#ifndef VQTEST_LEASE_H
#define VQTEST_LEASE_H

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string>

#include "support/ForkedChild.h"
#include "support/Wait.h"

namespace vqtest {

/// Another process has a lease of a file, and lets go of it when the test says so, whoever else asks for
/// it. (The kernel takes it away after the seconds of /proc/sys/fs/lease-break-time, which are the whole
/// machine's.)
class Lease {
public:
    explicit Lease(const std::string& path) : m_child([&] { return hold(path); }) {
        waitUntil([&] { return *m_state != eNone; });
    }

    bool isHeld() { return *m_state == eHeld || *m_state == eAskedFor; }

    /// Waits until somebody opens the file.
    bool isAskedFor() {
        return waitUntil([&] { return *m_state == eAskedFor; });
    }

    void letGo() { *m_isOver = true; }

private:
    enum eState : int { eNone, eRefused, eHeld, eAskedFor };

    int hold(const std::string& path) {
        sigset_t asked;
        ::sigemptyset(&asked);
        ::sigaddset(&asked, SIGIO);
        ::sigprocmask(SIG_BLOCK, &asked, nullptr);
        const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        const bool isGranted = fd >= 0 && ::fcntl(fd, F_SETLEASE, F_WRLCK) == 0;
        *m_state = isGranted ? eHeld : eRefused;
        if (isGranted && ::sigwaitinfo(&asked, nullptr) == SIGIO) {
            *m_state = eAskedFor;
        }
        while (!*m_isOver) {
            ::usleep(1000);  // the parent ends it, if nothing else does
        }
        return ::fcntl(fd, F_SETLEASE, F_UNLCK) == 0 ? 0 : 1;
    }

    Common<std::atomic<int>> m_state;
    Common<std::atomic<bool>> m_isOver;
    ForkedChild m_child;
};

#define SKIP_WITHOUT_LEASE(lease)                              \
    if (!(lease).isHeld()) {                                   \
        GTEST_SKIP() << "the system gives no leases of these"; \
    }

}  // namespace vqtest

#endif  // VQTEST_LEASE_H
