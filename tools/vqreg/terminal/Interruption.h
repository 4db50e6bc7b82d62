// Ctrl-C where the command has something to put away before it ends.
#ifndef TOOLS_VQREG_TERMINAL_INTERRUPTION_H
#define TOOLS_VQREG_TERMINAL_INTERRUPTION_H

#include <signal.h>

#include <optional>
#include <string>

namespace vqreg {

// Thrown instead of the signal's work; runCommand ends the process as the signal would have. Nothing has
// been changed then.
struct Interrupted {
    int signal;
};

// While it lives, SIGINT and SIGTERM are only remembered.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    static void check();  // throws Interrupted if there was a signal

    // From now on it is too late: for the rest of the process neither signal has an effect.
    void stay() { m_stays = true; }

    // The next line of standard input; none at its end. Throws Interrupted.
    static std::optional<std::string> readLine();

private:
    bool m_stays = false;
    struct sigaction m_interrupt {};
    struct sigaction m_terminate {};
};

// Says so, and ends the process as the signal would have.
[[noreturn]] void endProcess(const Interrupted& interrupted);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TERMINAL_INTERRUPTION_H
