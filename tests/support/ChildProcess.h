// A program as a process: what it prints, what it ends with, and how it takes signals.
#ifndef VQTEST_CHILD_PROCESS_H
#define VQTEST_CHILD_PROCESS_H

#include <fcntl.h>
#include <poll.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "support/ChildLife.h"

namespace vqtest {

/// How a command ended and what it printed.
struct CommandResult {
    int status = 0;  ///< the exit code, or the negated number of the signal
    std::string out;
    std::string err;

    bool operator==(const CommandResult&) const = default;
};

inline void PrintTo(const CommandResult& result, std::ostream* out) {
    *out << "status " << result.status << "\n--- out\n"
         << result.out << "--- err\n"
         << result.err << "---";
}

/// Variables of the environment that a process gets besides those of the test.
using Environment = std::vector<std::pair<std::string, std::string>>;

/// Becomes another program, which ends with the thread that forked it; for a child that has its standard
/// streams already.
[[noreturn]] inline void executeProgram(pid_t parent, std::string program,
                                        std::vector<std::string> arguments,
                                        const Environment& environment) {
    followParent(parent);
    for (const auto& [name, value] : environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    for (const int signal : {SIGPIPE, SIGINT, SIGQUIT}) {
        ::signal(signal, SIG_DFL);
    }
    std::vector<char*> pointers = {program.data()};
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    ::execvp(program.c_str(), pointers.data());
    ::_exit(127);
}

/// How a child ended: its exit code, or the negated number of the signal.
inline int waitForProcess(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// A program with its standard streams at pipes. The destructor kills and reaps it.
class ChildProcess {
public:
    using Environment = vqtest::Environment;

    explicit ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                          const Environment& environment = {}) {
        int in[2];
        int out[2];
        int err[2];
        if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 ||
            ::pipe2(err, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        const pid_t parent = ::getpid();
        m_pid = ::fork();
        if (m_pid < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (m_pid == 0) {
            ::dup2(in[0], 0);
            ::dup2(out[1], 1);
            ::dup2(err[1], 2);
            executeProgram(parent, program, arguments, environment);
        }
        ::close(in[0]);
        ::close(out[1]);
        ::close(err[1]);
        m_in = in[1];
        m_out = out[0];
        m_err = err[0];
    }
    ~ChildProcess() {
        closeAll();
        if (!m_isReaped) {
            ::kill(m_pid, SIGKILL);
            wait();
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return m_pid; }

    /// The next line of its standard output, without its end. @throws std::runtime_error when none
    /// comes for a long time or at all
    std::string line() {
        for (;;) {
            const std::size_t end = m_text.out.find('\n');
            if (end != std::string::npos) {
                std::string line = m_text.out.substr(0, end);
                m_text.out.erase(0, end + 1);
                return line;
            }
            if (!readSome(kDeadline)) {
                throw std::runtime_error("no line from the program; it said: " + m_text.err);
            }
        }
    }

    /// Nobody reads its standard output any more.
    void closeOutput() { closeOne(m_out); }

    void signal(int number) { ::kill(m_pid, number); }

    /// Gives it its standard input, which ends then.
    void give(const std::string& input) {
        std::size_t at = 0;
        ::signal(SIGPIPE, SIG_IGN);  // it may end without reading all of it
        while (at < input.size()) {
            const ssize_t size = ::write(m_in, input.data() + at, input.size() - at);
            if (size < 0) {
                break;
            }
            at += static_cast<std::size_t>(size);
        }
        closeOne(m_in);
    }

    /// Gives it its standard input and waits for its end. @return all that has not been read yet
    CommandResult finish(const std::string& input = {}) {
        give(input);
        while (readSome(kDeadline)) {
        }
        m_text.status = wait();
        return m_text;
    }

private:
    static constexpr auto kDeadline = std::chrono::seconds(30);

    // False at the end of both streams.
    bool readSome(std::chrono::milliseconds deadline) {
        pollfd streams[] = {{m_out, POLLIN, 0}, {m_err, POLLIN, 0}};
        const int count = ::poll(streams, 2, static_cast<int>(deadline.count()));
        if (count == 0) {
            throw std::runtime_error("the program is silent");
        }
        for (int i = 0; i < 2; ++i) {
            if (streams[i].revents == 0) {
                continue;
            }
            char buffer[4096];
            const ssize_t size = ::read(streams[i].fd, buffer, sizeof buffer);
            if (size > 0) {
                (i == 0 ? m_text.out : m_text.err).append(buffer, static_cast<std::size_t>(size));
            } else {
                closeOne(i == 0 ? m_out : m_err);
            }
        }
        return m_out >= 0 || m_err >= 0;
    }

    int wait() {
        m_isReaped = true;
        return waitForProcess(m_pid);
    }

    static void closeOne(int& fd) {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }
    void closeAll() {
        closeOne(m_in);
        closeOne(m_out);
        closeOne(m_err);
    }

    pid_t m_pid = -1;
    int m_in = -1;
    int m_out = -1;
    int m_err = -1;
    bool m_isReaped = false;
    CommandResult m_text;
};

}  // namespace vqtest

#endif  // VQTEST_CHILD_PROCESS_H
