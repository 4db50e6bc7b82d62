#include "tools/browse/LastResort.h"

#include <curses.h>
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

constexpr std::array<int, 6> kFaults = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGSYS};

int keep(int byte) {
    if (g_size < g_farewell.size()) {
        g_farewell[g_size++] = static_cast<char>(byte);
    }
    return byte;
}

void restore(int signal) {
    if (g_isRemembered) {
        [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, g_farewell.data(), g_size);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &g_modes);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

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
    for (const int fault : kFaults) {
        std::signal(fault, restore);
    }
}

void forgetTerminal() {
    g_isRemembered = false;
    for (const int fault : kFaults) {
        std::signal(fault, SIG_DFL);
    }
}

}  // namespace vqreg
