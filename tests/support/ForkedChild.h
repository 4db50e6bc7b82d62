// Children of the test process that run a piece of the test.
#ifndef VQTEST_FORKED_CHILD_H
#define VQTEST_FORKED_CHILD_H

#include <sys/mman.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <new>
#include <system_error>

#include "support/ChildLife.h"
#include "support/QuietFork.h"

namespace vqtest {

/// A copy of the test process that runs `body` and ends with its result as exit status, or with the
/// thread that made it. The destructor kills and reaps it. Fork before the test starts threads.
class ForkedChild {
public:
    static constexpr int kThrew = 120;  ///< exit status after an exception

    template <typename Body>
    explicit ForkedChild(Body body) {
        const pid_t parent = ::getpid();
        m_pid = forkQuietly(std::chrono::milliseconds(20));
        if (m_pid < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (m_pid == 0) {
            followParent(parent);
            int status = kThrew;
            try {
                status = body();
            } catch (const std::exception&) {
                // reported by the exit status
            }
            ::_exit(status);
        }
    }
    ~ForkedChild() { kill(); }
    ForkedChild(const ForkedChild&) = delete;
    ForkedChild& operator=(const ForkedChild&) = delete;

    pid_t pid() const { return m_pid; }

    /// Waits for its end. @return the exit status, or the negated number of the signal
    int wait() {
        if (!m_isReaped) {
            int status = 0;
            while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
            }
            m_isReaped = true;
            m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        }
        return m_status;
    }

    /// Ends it at once, as the loss of a process does. @return as `wait`
    int kill() {
        if (!m_isReaped) {
            ::kill(m_pid, SIGKILL);
        }
        return wait();
    }

private:
    pid_t m_pid = -1;
    bool m_isReaped = false;
    int m_status = 0;
};

/// An object that the test and the children forked after it have in common.
template <typename T>
class Common {
public:
    Common()
        : m_address(::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                           -1, 0)) {
        if (m_address == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        new (m_address) T{};
    }
    ~Common() { ::munmap(m_address, sizeof(T)); }
    Common(const Common&) = delete;
    Common& operator=(const Common&) = delete;

    T* operator->() { return static_cast<T*>(m_address); }
    T& operator*() { return *static_cast<T*>(m_address); }

private:
    void* m_address;
};

}  // namespace vqtest

#endif  // VQTEST_FORKED_CHILD_H
