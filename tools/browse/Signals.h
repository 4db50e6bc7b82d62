// Signals as something to wait for.
#ifndef TOOLS_BROWSE_SIGNALS_H
#define TOOLS_BROWSE_SIGNALS_H

#include <csignal>
#include <optional>

#include "tools/vqreg/base/FileHandle.h"

namespace vqreg {

// While an object lives, the signals that a person at a terminal sends, and those that end a process,
// are blocked, and told here one after the other. One that was ignored stays so.
class Signals {
public:
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    int fd() const { return m_handle.get(); }
    std::optional<int> next() const;

    static bool ends(int signal);

private:
    sigset_t m_before{};
    const FileHandle m_handle;
};

// Ends the process as the signal would have.
[[noreturn]] void endBySignal(int signal);

}  // namespace vqreg

#endif  // TOOLS_BROWSE_SIGNALS_H
