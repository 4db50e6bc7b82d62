#include "fault/FaultedChild.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <system_error>
#include <utility>

#include "fault/SystemCalls.h"
#include "support/ChildLife.h"

namespace vqtorture {

namespace {

constexpr int kThrew = 120;
constexpr int kAtSystemCall = SIGTRAP | 0x80;
constexpr unsigned kSeconds = 30;
constexpr long kMark = 1'000'001;  // no system call
constexpr std::uint64_t kBegin = 1;
constexpr std::uint64_t kEnd = 2;

// Who tries again for as long as it is only disturbed, or goes on after a part, is right to do so.
constexpr std::size_t kMostDisturbances = 64;

bool isDisturbance(const Fault& fault) {
    return fault.error == EINTR || fault.error == EAGAIN || fault.error == 0;
}

#if defined(__x86_64__)
constexpr std::size_t kNumber = offsetof(user_regs_struct, orig_rax);
constexpr std::size_t kResult = offsetof(user_regs_struct, rax);
constexpr std::size_t kSecond = offsetof(user_regs_struct, rsi);
constexpr std::size_t kThird = offsetof(user_regs_struct, rdx);

void setRegister(pid_t thread, std::size_t place, std::uint64_t value) {
    if (::ptrace(PTRACE_POKEUSER, thread, place, value) != 0) {
        throw std::system_error(errno, std::generic_category(), "PTRACE_POKEUSER");
    }
}
#else
constexpr std::size_t kNumber = 0;
constexpr std::size_t kResult = 0;
constexpr std::size_t kSecond = 0;
constexpr std::size_t kThird = 0;

void setRegister(pid_t, std::size_t, std::uint64_t) {
    throw std::logic_error("the registers of this machine are not known here");
}
#endif

// The look at an open file fails only where a file system has to look for it, which one in memory has not.
bool isSafeLook(pid_t thread, const __ptrace_syscall_info& info) {
    const bool isLook = info.entry.nr == SYS_fstat || (info.entry.nr == SYS_newfstatat &&
                                                       (info.entry.args[3] & AT_EMPTY_PATH) != 0);
    if (!isLook) {
        return false;
    }
    const std::string link =
        "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(info.entry.args[0]);
    std::error_code error;
    return std::filesystem::read_symlink(link, error).string().starts_with("/dev/shm/");
}

// Letting go of what one has does not fail.
bool isUnlocking(pid_t thread, const __ptrace_syscall_info& info) {
    const auto& arguments = info.entry.args;
    if (info.entry.nr == SYS_flock) {
        return arguments[1] == LOCK_UN;
    }
    if (info.entry.nr != SYS_fcntl || arguments[1] != F_OFD_SETLK) {
        return false;
    }
    static_assert(offsetof(struct flock, l_type) == 0);
    return static_cast<short>(::ptrace(PTRACE_PEEKDATA, thread, arguments[2], nullptr)) == F_UNLCK;
}

std::uint64_t partOf(std::uint64_t size, Fault::Kind kind) {
    return kind == Fault::Kind::eHalf ? std::max<std::uint64_t>(size / 2, 1) : 1;
}

}  // namespace

bool FaultedChild::isPossible() {
#if defined(__x86_64__)
    FaultedChild child({}, [] {
        begin();
        end();
        return 0;
    });
    return child.runToEnd() && child.finish() == 0;
#else
    return false;
#endif
}

FaultedChild::FaultedChild(std::vector<Plan> plans, const std::function<int()>& body)
    : m_plans(std::move(plans)) {
    const pid_t parent = ::getpid();
    m_pid = ::fork();
    if (m_pid < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (m_pid == 0) {
        vqtest::endWithParent(parent, kSeconds);
        ::setpgid(0, 0);
        int status = kThrew;
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
            ::raise(SIGSTOP);
            try {
                status = body();
            } catch (const std::exception&) {
                // the exit status tells of it
            }
        }
        ::_exit(status);
    }
    ::setpgid(m_pid, m_pid);  // whoever comes first
    int status = 0;
    if (::waitpid(m_pid, &status, __WALL) != m_pid || !WIFSTOPPED(status)) {
        m_hasEnded = true;
        return;
    }
    ::ptrace(PTRACE_SETOPTIONS, m_pid, nullptr,
             PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
    m_atMark = m_pid;
}

FaultedChild::~FaultedChild() {
    if (!m_hasEnded) {
        ::kill(m_pid, SIGKILL);
        while (!m_hasEnded) {
            runUntilMark();
        }
    }
}

void FaultedChild::begin() {
    ::syscall(kMark, kBegin);
}

void FaultedChild::end() {
    ::syscall(kMark, kEnd);
}

bool FaultedChild::runToEnd() {
    return runUntilMark();
}

int FaultedChild::finish() {
    while (!m_hasEnded) {
        runUntilMark();
    }
    return m_status;
}

void FaultedChild::resume(pid_t thread, int signal) const {
    ::ptrace(PTRACE_SYSCALL, thread, nullptr, signal);
}

std::size_t FaultedChild::failures(const std::string& name) const {
    std::istringstream names(m_failed);
    return static_cast<std::size_t>(
        std::count(std::istream_iterator<std::string>(names), {}, name));
}

// True when it has come to the end mark.
bool FaultedChild::runUntilMark() {
    if (m_atMark != 0) {
        resume(std::exchange(m_atMark, 0), 0);
    }
    while (!m_hasEnded) {
        int status = 0;
        const pid_t thread = ::waitpid(-m_pid, &status, __WALL);
        if (thread < 0) {
            if (errno == EINTR) {
                continue;
            }
            m_hasEnded = true;
        } else if (WIFSTOPPED(status)) {
            if (onStop(thread, status)) {
                m_atMark = thread;
                return true;
            }
        } else if (thread == m_pid) {
            m_hasEnded = true;
            m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        }
    }
    return false;
}

// True at the end mark, where the thread stays.
bool FaultedChild::onStop(pid_t thread, int status) {
    int signal = WSTOPSIG(status);
    if (signal == kAtSystemCall) {
        if (onSystemCall(thread)) {
            return true;
        }
        signal = 0;
    } else if ((status >> 16) != 0 || signal == SIGSTOP) {
        signal = 0;  // a new thread
    }
    resume(thread, signal);
    return false;
}

bool FaultedChild::onSystemCall(pid_t thread) {
    __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) <= 0) {
        return false;
    }
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
        return onEntry(thread, info);
    }
    if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
        onExit(thread);
    }
    return false;
}

bool FaultedChild::onEntry(pid_t thread, const __ptrace_syscall_info& info) {
    if (info.entry.nr == static_cast<std::uint64_t>(kMark)) {
        m_isArmed = info.entry.args[0] == kBegin;
        return info.entry.args[0] == kEnd;
    }
    const SystemCall* const call = m_isArmed ? faultyCall(thread, info) : nullptr;
    const Plan* const plan = call ? planOf(m_calls++) : nullptr;
    if (plan) {
        const Fault& fault = call->faults[plan->choice % call->faults.size()];
        if (!isDisturbance(fault) || m_failedCalls < kMostDisturbances) {
            ++m_failedCalls;
            m_failed += std::string(call->name) + " ";
            if (fault.error == EIO || fault.error == ENOSPC || fault.error == EDQUOT) {
                m_ofDisk.insert(call->name);
            }
            put(thread, fault, info);
        }
    }
    return false;
}

// Null for one that cannot fail; one that nobody has judged is noted.
const SystemCall* FaultedChild::faultyCall(pid_t thread, const __ptrace_syscall_info& info) {
    std::uint64_t arguments[6];
    std::copy(std::begin(info.entry.args), std::end(info.entry.args), arguments);
    const KnownCall known = knownCall(info.entry.nr, arguments);
    if (!known.isKnown()) {
        m_unknown.insert(std::to_string(info.entry.nr) + "(" + std::to_string(arguments[0]) + ", " +
                         std::to_string(arguments[1]) + ", ...)");
    }
    return isSafeLook(thread, info) || isUnlocking(thread, info) ? nullptr : known.call;
}

const Plan* FaultedChild::planOf(std::size_t call) const {
    const auto found = std::find_if(m_plans.begin(), m_plans.end(),
                                    [call](const Plan& plan) { return plan.concerns(call); });
    return found == m_plans.end() ? nullptr : &*found;
}

void FaultedChild::put(pid_t thread, const Fault& fault, const __ptrace_syscall_info& info) {
    Pending pending{fault};
    if (fault.kind == Fault::Kind::eInstead) {
        setRegister(thread, kNumber, static_cast<std::uint64_t>(-1));
    } else if (fault.kind != Fault::Kind::eAfter) {
        shorten(thread, info, pending);
    }
    m_pending[thread] = pending;
}

// Of a list of pieces only a part of the first one is left.
void FaultedChild::shorten(pid_t thread, const __ptrace_syscall_info& info, Pending& pending) {
    const auto& arguments = info.entry.args;
    if (info.entry.nr == SYS_getrandom) {
        setRegister(thread, kSecond, partOf(arguments[1], pending.fault.kind));
        return;
    }
    if (info.entry.nr != SYS_writev) {
        setRegister(thread, kThird, partOf(arguments[2], pending.fault.kind));
        return;
    }
    pending.changedAt = arguments[1] + offsetof(iovec, iov_len);
    const long length = ::ptrace(PTRACE_PEEKDATA, thread, pending.changedAt, nullptr);
    pending.changedLength = static_cast<std::uint64_t>(length);
    ::ptrace(PTRACE_POKEDATA, thread, pending.changedAt,
             partOf(pending.changedLength, pending.fault.kind));
    setRegister(thread, kThird, 1);
}

void FaultedChild::onExit(pid_t thread) {
    const auto found = m_pending.find(thread);
    if (found == m_pending.end()) {
        return;
    }
    const Pending pending = found->second;
    m_pending.erase(found);
    if (pending.changedAt != 0) {
        ::ptrace(PTRACE_POKEDATA, thread, pending.changedAt, pending.changedLength);
    }
    if (pending.fault.error != 0) {
        setRegister(thread, kResult, static_cast<std::uint64_t>(-pending.fault.error));
    }
}

}  // namespace vqtorture
