// Signals as something to read, for who passes them on.
#ifndef TOOLS_VQREG_BASE_SIGNALINBOX_H
#define TOOLS_VQREG_BASE_SIGNALINBOX_H

#include <signal.h>

#include <optional>
#include <string>

#include "tools/vqreg/base/FileHandle.h"

namespace vqreg {

// While it lives, the signals that may be meant for a child are kept for reading, and SIGCHLD is. Not
// those of job control: the terminal sends them to all of its group, and this process stops with it.
// To be made in the only thread that does not block all signals.
class SignalInbox {
public:
    // Throws eUnavailable.
    SignalInbox();
    ~SignalInbox();
    SignalInbox(const SignalInbox&) = delete;
    SignalInbox& operator=(const SignalInbox&) = delete;

    struct Letter {
        int signal;
        bool isFromKernel;  // from the keys of a terminal, for example, which the child has got too
    };

    int descriptor() const { return m_inbox.get(); }
    std::optional<Letter> next();

    // What a child shall have as its own.
    const sigset_t& maskBefore() const { return m_before; }

private:
    sigset_t m_before{};
    const FileHandle m_inbox;
};

// Of "HUP", "SIGHUP", "hup" or "1"; none for what is no signal.
std::optional<int> signalNumber(const std::string& text);

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_SIGNALINBOX_H
