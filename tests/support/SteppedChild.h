// A child that goes from system call to system call, and stays stopped between them.
#ifndef VQTEST_STEPPED_CHILD_H
#define VQTEST_STEPPED_CHILD_H

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <system_error>

#include "support/ChildLife.h"
#include "support/QuietFork.h"

namespace vqtest {

/// A copy of the test process that is traced. `body` is called with an object `begin`: what it does
/// before begin() it does at full speed, from there on it is stopped where each system call begins
/// and where it ends. Its result is the exit status. The child ends with the test.
///
/// With eAllThreads, any thread of the child may call begin(), and threads that this one starts then are
/// stepped through as well: each stop is that of whichever thread comes to one next, and the others go
/// on meanwhile.
///
/// Only the thread that has made the object may use it.
class SteppedChild {
public:
    static constexpr int kThrew = 120;     ///< exit status after an exception
    static constexpr int kUntraced = 121;  ///< exit status where tracing is not permitted

    enum eThreads { eFirstThread, eAllThreads };

    template <typename Body>
    explicit SteppedChild(Body body, eThreads threads = eFirstThread)
        : m_hasAllThreads(threads == eAllThreads) {
        const pid_t parent = ::getpid();
        m_pid = forkQuietly(std::chrono::milliseconds(500));
        if (m_pid < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (m_pid == 0) {
            endWithParent(parent);
            haveGroup(0);
            int status = kThrew;
            try {
                status = body([] { letTrace(); });
            } catch (const std::exception&) {
                // reported by the exit status
            }
            endAtOnce(status);
        }
        haveGroup(m_pid);
        if (collect()) {
            ::ptrace(PTRACE_SETOPTIONS, m_stopped, nullptr,
                     PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL |
                         (m_hasAllThreads ? PTRACE_O_TRACECLONE : 0));
        }
    }
    ~SteppedChild() { kill(); }
    SteppedChild(const SteppedChild&) = delete;
    SteppedChild& operator=(const SteppedChild&) = delete;

    /// Whether the system lets a process trace its child.
    static bool isPermitted() {
        SteppedChild child([](auto begin) {
            begin();
            return 0;
        });
        return child.finish() == 0;
    }

    pid_t pid() const { return m_pid; }
    bool isEnded() const { return m_isEnded; }
    int status() const { return m_status; }  ///< exit status, or the negated number of the signal

    /// On to the next stop. @return false when it has ended
    bool step() {
        while (!m_isEnded) {
            ::ptrace(PTRACE_SYSCALL, m_stopped, nullptr, m_signal);
            if (collect() && m_isAtSystemCall) {
                return true;
            }
        }
        return false;
    }

    /// Over so many stops. @return false when it has ended before
    bool step(int stops) {
        while (stops-- > 0 && step()) {
        }
        return !m_isEnded;
    }

    /// Over so many instructions of its program. @return false when it has ended before
    bool stepInstructions(int instructions) {
        while (instructions-- > 0 && !m_isEnded) {
            ::ptrace(PTRACE_SINGLESTEP, m_stopped, nullptr, m_signal);
            if (collect() && m_signal == SIGTRAP) {
                m_signal = 0;
            }
        }
        return !m_isEnded;
    }

    pid_t stopped() const { return m_stopped; }  ///< the thread that is at the stop

    /// At a stop: what the kernel tells of it.
    __ptrace_syscall_info stop() const {
        __ptrace_syscall_info info{};
        if (::ptrace(PTRACE_GET_SYSCALL_INFO, m_stopped, sizeof info, &info) <= 0) {
            info.op = PTRACE_SYSCALL_INFO_NONE;
        }
        return info;
    }

    /// At a stop: whether that is the beginning of a system call, and then which.
    bool isEntering(std::uint64_t& number, std::uint64_t& firstArgument) const {
        const __ptrace_syscall_info info = stop();
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            return false;
        }
        number = info.entry.nr;
        firstArgument = info.entry.args[0];
        return true;
    }

    /// Stops it as SIGSTOP stops any process; from then on it is traced no longer. Only with one thread.
    /// @return false when it has ended
    bool stopUntraced() {
        if (!m_isEnded) {
            ::kill(m_pid, SIGSTOP);
            ::ptrace(PTRACE_DETACH, m_stopped, nullptr, 0);
            m_isTraced = false;
            collect(WUNTRACED);
        }
        return !m_isEnded;
    }

    /// After that.
    void goOn() { ::kill(m_pid, SIGCONT); }

    /// Lets it run to its end. @return as `status`
    int finish() {
        while (!m_isEnded) {
            if (m_isTraced) {
                ::ptrace(PTRACE_CONT, m_stopped, nullptr, m_signal);
            }
            collect();
        }
        return m_status;
    }

    /// Ends it where it is. @return as `status`
    int kill() {
        if (!m_isEnded) {
            ::kill(m_pid, SIGKILL);
            finish();
        }
        return m_status;
    }

private:
    static constexpr int kAtSystemCall = SIGTRAP | 0x80;

    // By which its threads can be waited for. Parent and child do it, whoever comes first.
    void haveGroup(pid_t pid) const {
        if (m_hasAllThreads) {
            ::setpgid(pid, pid);
        }
    }

    // Without what a build that counts lines does before: it would be stepped through as well.
    [[noreturn]] static void endAtOnce(int status) {
        while (true) {
            ::syscall(SYS_exit_group, status);
        }
    }

    static void letTrace() {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            endAtOnce(kUntraced);
        }
        ::raise(SIGSTOP);
    }

    // Waits until one of its threads has stopped, or all have ended. False then.
    bool collect(int more = 0) {
        for (;;) {
            int status = 0;
            m_stopped = ::waitpid(m_hasAllThreads ? -m_pid : m_pid, &status, __WALL | more);
            if (m_stopped < 0 && errno != EINTR) {
                throw std::system_error(errno, std::generic_category(), "waitpid");
            }
            if (m_stopped > 0 && WIFSTOPPED(status)) {
                m_isAtSystemCall = WSTOPSIG(status) == kAtSystemCall;
                const bool isOfTrace =
                    m_isAtSystemCall || status >> 16 != 0 || WSTOPSIG(status) == SIGSTOP;
                m_signal = isOfTrace ? 0 : WSTOPSIG(status);
                return true;
            }
            if (m_stopped == m_pid) {
                m_isEnded = true;
                m_signal = 0;
                m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
                return false;
            }
        }
    }

    const bool m_hasAllThreads;
    pid_t m_pid = -1;
    pid_t m_stopped = -1;  // the thread that has
    int m_signal = 0;      // to be delivered when it goes on
    bool m_isAtSystemCall = false;
    bool m_isTraced = true;
    bool m_isEnded = false;
    int m_status = 0;
};

/// While it lives: when the test process has not come on within so many seconds, the child is killed,
/// so that what waits for it goes on, and the test knows.
class SteppedChildGuard {
public:
    SteppedChildGuard(const SteppedChild& child, unsigned seconds) {
        s_child = child.isEnded() ? 0 : child.pid();
        s_isTooLate = 0;
        struct sigaction action {};
        action.sa_handler = [](int) {
            s_isTooLate = 1;
            if (s_child > 0) {
                ::kill(static_cast<pid_t>(s_child), SIGKILL);
            }
        };
        ::sigaction(SIGALRM, &action, &m_old);
        ::alarm(seconds);
    }
    ~SteppedChildGuard() {
        ::alarm(0);
        ::sigaction(SIGALRM, &m_old, nullptr);
    }
    SteppedChildGuard(const SteppedChildGuard&) = delete;
    SteppedChildGuard& operator=(const SteppedChildGuard&) = delete;

    bool isTooLate() const { return s_isTooLate != 0; }

private:
    static inline volatile sig_atomic_t s_child = 0;
    static inline volatile sig_atomic_t s_isTooLate = 0;
    struct sigaction m_old {};
};

}  // namespace vqtest

#endif  // VQTEST_STEPPED_CHILD_H
