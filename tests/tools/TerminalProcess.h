// A program at a terminal: what a person sees there, and what the person types.
#ifndef VQTEST_TERMINAL_PROCESS_H
#define VQTEST_TERMINAL_PROCESS_H

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Wait.h"

namespace vqtest {

/// Which standard streams are the terminal. The others are pipes.
struct TerminalStreams {
    bool in = true;
    bool out = true;
    bool err = true;
    unsigned short columns = 80;
    unsigned short rows = 24;
};

/// How a program ended, what its terminal has shown from the beginning, with what was typed, and
/// what came through the pipes.
struct TerminalResult {
    int status = 0;  ///< the exit code, or the negated number of the signal
    std::string screen;
    std::string out;
    std::string err;

    bool operator==(const TerminalResult&) const = default;
};

inline void PrintTo(const TerminalResult& result, std::ostream* stream) {
    *stream << "status " << result.status << "\n--- screen\n"
            << result.screen << "--- out\n"
            << result.out << "--- err\n"
            << result.err << "---";
}

/// A program whose controlling terminal is a pseudo-terminal. Line ends reach the screen as "\n".
/// The destructor kills and reaps it.
class TerminalProcess {
public:
    static constexpr const char* kInterrupt = "\x03";  ///< what Ctrl-C types
    static constexpr const char* kEndOfInput = "\x04";

    TerminalProcess(const std::string& program, const std::vector<std::string>& arguments,
                    const Environment& environment = {}, const TerminalStreams& streams = {}) {
        openTerminal(streams.rows, streams.columns);
        const std::array<bool, 3> atTerminal = {streams.in, streams.out, streams.err};
        std::array<int, 3> childEnds = {m_terminal, m_terminal, m_terminal};
        for (std::size_t i = 0; i < 3; ++i) {
            if (!atTerminal[i]) {
                const auto [readEnd, writeEnd] = makePipe();
                childEnds[i] = i == 0 ? readEnd : writeEnd;
                m_pipes[i] = i == 0 ? writeEnd : readEnd;
            }
        }
        auto [started, starting] = makePipe();
        const pid_t parent = ::getpid();
        m_pid = ::fork();
        if (m_pid < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (m_pid == 0) {
            takeTerminal();
            for (int i = 0; i < 3; ++i) {
                ::dup2(childEnds[static_cast<std::size_t>(i)], i);
            }
            executeProgram(parent, program, arguments, environment);
        }
        for (std::size_t i = 0; i < 3; ++i) {
            if (!atTerminal[i]) {
                ::close(childEnds[i]);
            }
        }
        closeOne(m_terminal);
        // Closed by the start of the program: from there on it gets what is typed.
        closeOne(starting);
        char byte = 0;
        while (::read(started, &byte, 1) < 0 && errno == EINTR) {
        }
        closeOne(started);
    }
    ~TerminalProcess() {
        if (!m_isReaped) {
            ::kill(m_pid, SIGKILL);
            waitForProcess(m_pid);
        }
        closeAll();
    }
    TerminalProcess(const TerminalProcess&) = delete;
    TerminalProcess& operator=(const TerminalProcess&) = delete;

    pid_t pid() const { return m_pid; }

    /// Waits until the terminal shows a text after what was expected before.
    /// @return what it shows between the two
    /// @throws std::runtime_error when it does not for a long time, or the program has ended
    std::string expect(const std::string& text) {
        std::size_t at = 0;
        while ((at = m_result.screen.find(text, m_seen)) == std::string::npos) {
            if (!readSome()) {
                throw std::runtime_error("\"" + text + "\" was not shown, but:\n" +
                                         m_result.screen);
            }
        }
        const std::string between = m_result.screen.substr(m_seen, at - m_seen);
        m_seen = at + text.size();
        return between;
    }

    /// What the terminal has been given up to now, and the wait for more. False when nobody has it any
    /// more; throws when nothing comes for so long.
    const std::string& shown() const { return m_result.screen; }
    bool waitForMore(std::chrono::milliseconds limit = kDeadline) { return readSome(limit); }

    /// How the terminal treats what is typed and shown.
    termios modes() const {
        termios modes{};
        ::tcgetattr(m_keyboard, &modes);
        return modes;
    }

    void setModes(const termios& modes) const { ::tcsetattr(m_keyboard, TCSANOW, &modes); }

    /// Waits until a signal has stopped the program.
    bool isStopped() const {
        siginfo_t info{};
        return ::waitid(P_PID, static_cast<id_t>(m_pid), &info, WSTOPPED) == 0;
    }

    const termios& modesAtFirst() const { return m_modesAtFirst; }

    /// As when a person makes the window larger or smaller.
    void resize(unsigned short rows, unsigned short columns) const {
        const winsize size{rows, columns, 0, 0};
        ::ioctl(m_keyboard, TIOCSWINSZ, &size);
    }

    void signal(int number) const { ::kill(m_pid, number); }

    /// As when a connection breaks.
    void hangUp() {
        closeOne(m_screen);
        closeOne(m_keyboard);
    }

    void type(const std::string& keys) const { writeAll(m_keyboard, keys); }

    /// Puts a text into a standard input that is a pipe.
    void feed(const std::string& text) const {
        ::signal(SIGPIPE, SIG_IGN);  // the program may have ended
        writeAll(m_pipes[0], text);
    }

    /// Waits for the end of the program.
    TerminalResult finish() {
        closeOne(m_pipes[0]);
        return waitForEnd();
    }

    /// Waits for the end without looking at what is shown. False when it does not come.
    bool endsUnread(std::chrono::milliseconds limit = kDeadline) {
        const auto hasEnded = [this] {
            siginfo_t info{};
            return ::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) ==
                       0 &&
                   info.si_pid == m_pid;
        };
        if (!waitUntil(hasEnded, limit)) {
            return false;
        }
        m_result.status = waitForProcess(m_pid);
        m_isReaped = true;
        return true;
    }
    /// Of a program that has ended.
    int status() const { return m_result.status; }

    /// Types Ctrl-C and waits for the end. The "^C" that the terminal shows for it is left out: the
    /// program is at work already then, so that its place is a matter of luck.
    TerminalResult interrupt() {
        type(kInterrupt);
        TerminalResult result = waitForEnd();  // its standard input does not end before
        const std::size_t echo = result.screen.find("^C", m_seen);
        if (echo != std::string::npos) {
            result.screen.erase(echo, 2);
        }
        return result;
    }

private:
    static constexpr std::chrono::milliseconds kDeadline = std::chrono::seconds(30);

    struct Pipe {
        int readEnd;
        int writeEnd;
    };

    static Pipe makePipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        return {ends[0], ends[1]};
    }

    void openTerminal(unsigned short rows, unsigned short columns) {
        m_keyboard = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char name[64];
        if (m_keyboard < 0 || ::grantpt(m_keyboard) != 0 || ::unlockpt(m_keyboard) != 0 ||
            ::ptsname_r(m_keyboard, name, sizeof name) != 0 ||
            (m_terminal = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC)) < 0) {
            throw std::system_error(errno, std::generic_category(), "pseudo-terminal");
        }
        termios modes{};
        ::tcgetattr(m_terminal, &modes);
        modes.c_oflag &= ~static_cast<tcflag_t>(ONLCR);
        modes.c_lflag |= NOFLSH;  // Ctrl-C takes away nothing that has been printed
        ::tcsetattr(m_terminal, TCSANOW, &modes);
        ::tcgetattr(m_terminal, &m_modesAtFirst);
        m_screen = ::fcntl(m_keyboard, F_DUPFD_CLOEXEC, 0);
        const winsize size{rows, columns, 0, 0};
        ::ioctl(m_terminal, TIOCSWINSZ, &size);
    }

    // In the child.
    void takeTerminal() const {
        ::setsid();
        if (::ioctl(m_terminal, TIOCSCTTY, 0) != 0) {
            ::_exit(126);
        }
    }

    static void writeAll(int fd, const std::string& text) {
        for (std::size_t at = 0; at < text.size();) {
            const ssize_t size = ::write(fd, text.data() + at, text.size() - at);
            if (size < 0) {
                throw std::system_error(errno, std::generic_category(), "write");
            }
            at += static_cast<std::size_t>(size);
        }
    }

    // False when nobody has the terminal or one of the pipes any more.
    bool readSome(std::chrono::milliseconds limit = kDeadline) {
        std::array<pollfd, 3> streams = {pollfd{m_screen, POLLIN, 0}, pollfd{m_pipes[1], POLLIN, 0},
                                         pollfd{m_pipes[2], POLLIN, 0}};
        if (::poll(streams.data(), streams.size(), static_cast<int>(limit.count())) == 0) {
            throw std::runtime_error("the program is silent; the terminal shows:\n" +
                                     m_result.screen);
        }
        const std::array<std::string*, 3> texts = {&m_result.screen, &m_result.out, &m_result.err};
        const std::array<int*, 3> ends = {&m_screen, &m_pipes[1], &m_pipes[2]};
        for (std::size_t i = 0; i < streams.size(); ++i) {
            if (streams[i].revents != 0) {
                readOne(*ends[i], *texts[i]);
            }
        }
        return m_screen >= 0 || m_pipes[1] >= 0 || m_pipes[2] >= 0;
    }

    static void readOne(int& fd, std::string& text) {
        char buffer[4096];
        const ssize_t size = ::read(fd, buffer, sizeof buffer);
        if (size > 0) {
            text.append(buffer, static_cast<std::size_t>(size));
        } else {
            closeOne(fd);  // a terminal that nobody has any more fails with EIO
        }
    }

    TerminalResult waitForEnd() {
        while (readSome()) {
        }
        m_result.status = waitForProcess(m_pid);
        m_isReaped = true;
        return m_result;
    }

    static void closeOne(int& fd) {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }
    void closeAll() {
        closeOne(m_screen);
        closeOne(m_keyboard);
        closeOne(m_terminal);
        for (int& fd : m_pipes) {
            closeOne(fd);
        }
    }

    pid_t m_pid = -1;
    int m_keyboard = -1;  // the other side of the terminal; closing it hangs up
    int m_screen = -1;    // the same, until nobody has the terminal any more
    int m_terminal = -1;  // until the program has started
    std::array<int, 3> m_pipes = {-1, -1, -1};
    termios m_modesAtFirst{};
    bool m_isReaped = false;
    std::size_t m_seen = 0;
    TerminalResult m_result;
};

}  // namespace vqtest

#endif  // VQTEST_TERMINAL_PROCESS_H
