// Signals as something to read, for who passes them on.
#ifndef TOOLS_VQREG_BASE_SIGNALINBOX_H
#define TOOLS_VQREG_BASE_SIGNALINBOX_H

#include <signal.h>

#include <optional>
#include <string>

#include "tools/vqreg/base/FileHandle.h"

namespace vqreg {

// From here on, the signals that may be meant for a child are kept for reading, and SIGCHLD is. Not those
// of job control: the terminal sends them to all of its group, and this process stops with it.
// To be made once, in the only thread that does not block all signals. They stay kept to the end of the
// process, so that none changes how it ends.
class SignalInbox {
public:
    // Throws eUnavailable.
    SignalInbox();
    SignalInbox(const SignalInbox&) = delete;
    SignalInbox& operator=(const SignalInbox&) = delete;

    struct Letter {
        int signal;
        bool hasReachedChild;  // with this process: from the keys of a terminal, for example
        bool asksForEnd;       // perhaps not of all programs, see isFinal
        bool isFinal;          // no program is there to stay after it
    };

    int descriptor() const { return m_inbox.get(); }
    std::optional<Letter> next();

    // In a child, which shall have what the caller has given to this process. Between fork and exec.
    void giveBack() const;

private:
    sigset_t m_before{};
    struct sigaction m_childBefore {};
    const FileHandle m_inbox;
};

// Of "HUP", "SIGHUP", "hup" or "1"; none for what is no signal.
std::optional<int> signalNumber(const std::string& text);

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_SIGNALINBOX_H
