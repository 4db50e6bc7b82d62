// Waiting for changes until the process is told to end.
#ifndef TOOLS_VQREG_STORE_CHANGESIGNALS_H
#define TOOLS_VQREG_STORE_CHANGESIGNALS_H

#include <optional>
#include <string>

#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/store/ChangeSource.h"

namespace vqreg {

// While an object lives, SIGINT and SIGTERM end the wait instead of the process. One at a time.
class ChangeSignals {
public:
    // Throws CommandError where the system has no more handles for it.
    explicit ChangeSignals(const std::string& file);
    ~ChangeSignals();
    ChangeSignals(const ChangeSignals&) = delete;
    ChangeSignals& operator=(const ChangeSignals&) = delete;

    // None after a signal, and when nobody reads standard output any more.
    std::optional<eNews> wait();

private:
    const FileHandle m_ended;
    ChangeSource m_source;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_CHANGESIGNALS_H
