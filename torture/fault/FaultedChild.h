// A child whose system calls fail by plan.
//
// The child is traced (ptrace) and stops where each call begins and ends, in all its threads. A call
// that is to fail is not made: its number is replaced by one that there is none of, and the result by an
// error. What ends all the same, a closing, is made, and only the result is replaced; of what is read or
// written for a part, only the size changes. So nothing of the library, of the C library or of what they
// start is left out, and nothing in the child knows of it.
#ifndef VQTORTURE_FAULT_FAULTED_CHILD_H
#define VQTORTURE_FAULT_FAULTED_CHILD_H

#include <sys/ptrace.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fault/Plan.h"

namespace vqtorture {

struct SystemCall;

class FaultedChild {
public:
    /// Whether this machine lets a process change the system calls of its child.
    static bool isPossible();

    /// The body runs in a copy of this process. Between begin() and end(), which it calls once each,
    /// calls are counted and fail.
    FaultedChild(std::vector<Plan> plans, const std::function<int()>& body);
    ~FaultedChild();
    FaultedChild(const FaultedChild&) = delete;
    FaultedChild& operator=(const FaultedChild&) = delete;

    /// In the child.
    static void begin();
    static void end();

    /// Lets it run until end(), where it is left stopped. False when it has ended before.
    bool runToEnd();

    /// Lets it run on, with everything working. Its exit status, or the negated number of a signal.
    int finish();

    std::size_t calls() const { return m_calls; }  ///< that could have failed
    std::size_t failedCalls() const { return m_failedCalls; }
    /// The names of those that failed, with a blank behind each.
    const std::string& failed() const { return m_failed; }
    std::size_t failures(const std::string& name) const;
    bool hasFailed(const std::string& name) const { return failures(name) != 0; }
    /// Whether the disk itself has told of an error by it.
    bool hasDiskFailed(const std::string& name) const { return m_ofDisk.count(name) != 0; }
    /// Those between the marks that nobody has judged, with their numbers.
    const std::set<std::string>& unknownCalls() const { return m_unknown; }

private:
    // What is to be done where a call of a thread ends.
    struct Pending {
        Fault fault;
        std::uint64_t changedLength = 0;  // of the first piece in the child's memory
        std::uint64_t changedAt = 0;
    };

    bool runUntilMark();
    bool onStop(pid_t thread, int status);
    bool onSystemCall(pid_t thread);
    bool onEntry(pid_t thread, const __ptrace_syscall_info& info);
    void onExit(pid_t thread);
    const SystemCall* faultyCall(pid_t thread, const __ptrace_syscall_info& info);
    const Plan* planOf(std::size_t call) const;
    void put(pid_t thread, const Fault& fault, const __ptrace_syscall_info& info);
    void shorten(pid_t thread, const __ptrace_syscall_info& info, Pending& pending);
    void resume(pid_t thread, int signal) const;

    std::vector<Plan> m_plans;
    pid_t m_pid = -1;
    bool m_isArmed = false;
    bool m_hasEnded = false;
    int m_status = 0;
    pid_t m_atMark = 0;
    std::size_t m_calls = 0;
    std::size_t m_failedCalls = 0;
    std::string m_failed;
    std::set<std::string> m_ofDisk;
    std::set<std::string> m_unknown;
    std::map<pid_t, Pending> m_pending;
};

}  // namespace vqtorture

#endif  // VQTORTURE_FAULT_FAULTED_CHILD_H
