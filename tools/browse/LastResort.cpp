#include "tools/browse/LastResort.h"

#include <curses.h>
#include <poll.h>
#include <term.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>

#include "tools/browse/TerminalType.h"

namespace vqreg {

namespace {

// All that the handler may use: it is called in the middle of anything.
termios g_modes{};
std::array<char, 512> g_farewell{};
std::size_t g_size = 0;
bool g_isRemembered = false;

// All that end a process and can be caught, but for those of real time, which have no constant numbers.
// The first four are blocked but while the picture is written.
constexpr std::array<int, 20> kEndings = {
    SIGTERM, SIGHUP,  SIGINT,  SIGQUIT, SIGSEGV, SIGBUS,    SIGFPE,  SIGILL, SIGABRT, SIGSYS,
    SIGTRAP, SIGUSR1, SIGUSR2, SIGALRM, SIGPROF, SIGVTALRM, SIGXCPU, SIGIO,  SIGPWR,  SIGSTKFLT};

// Also for what a stack that is full leads to.
std::array<char, 65536> g_stack{};
std::array<struct sigaction, _NSIG> g_before{};

int keep(int byte) {
    if (g_size < g_farewell.size()) {
        g_farewell[g_size++] = static_cast<char>(byte);
    }
    return byte;
}

bool hasRoom() {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    return ::poll(&output, 1, 0) > 0;
}

void restore(int signal) {
    if (g_isRemembered) {
        makeRoom();
        if (hasRoom()) {
            [[maybe_unused]] const ssize_t written =
                ::write(STDOUT_FILENO, g_farewell.data(), g_size);
        }
        ::tcsetattr(STDIN_FILENO, TCSANOW, &g_modes);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// One that is ignored stays so.
void catchOne(int signal) {
    struct sigaction& before = g_before[static_cast<std::size_t>(signal)];
    if (::sigaction(signal, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) {
        return;
    }
    struct sigaction action {};
    action.sa_handler = restore;
    action.sa_flags = SA_ONSTACK;
    ::sigaction(signal, &action, nullptr);
}

void giveBackOne(int signal) {
    struct sigaction present {};
    if (::sigaction(signal, nullptr, &present) == 0 && present.sa_handler == restore) {
        ::sigaction(signal, &g_before[static_cast<std::size_t>(signal)], nullptr);
    }
}

void forEach(void (*what)(int signal)) {
    for (const int signal : kEndings) {
        what(signal);
    }
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
        what(signal);
    }
}

}  // namespace

void makeRoom() {
    if (!hasRoom()) {
        ::tcflush(STDOUT_FILENO, TCOFLUSH);
    }
}

void rememberTerminal() {
    ::tcgetattr(STDIN_FILENO, &g_modes);
    g_size = 0;
    for (const char* const text :
         {exit_attribute_mode, keypad_local, cursor_normal, exit_ca_mode}) {
        if (text) {
            ::tputs(text, 1, keep);
        }
    }
    for (const char letter : capability("BD")) {
        keep(letter);  // pasted texts are not told any more
    }
    g_isRemembered = true;
    stack_t stack{};
    stack.ss_sp = g_stack.data();
    stack.ss_size = g_stack.size();
    ::sigaltstack(&stack, nullptr);
    forEach(catchOne);
}

void forgetTerminal() {
    g_isRemembered = false;
    forEach(giveBackOne);
}

}  // namespace vqreg
