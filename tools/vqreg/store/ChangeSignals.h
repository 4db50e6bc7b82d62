// Waiting for changes until the process is told to end.
#ifndef TOOLS_VQREG_STORE_CHANGESIGNALS_H
#define TOOLS_VQREG_STORE_CHANGESIGNALS_H

#include <VQRegLib.h>

#include <chrono>
#include <string>

#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/store/ChangeSource.h"

namespace vqreg {

// While an object lives, SIGINT and SIGTERM end the wait instead of the process. One at a time.
class ChangeSignals {
public:
    enum class eNews { eNothing, eChange, eEnd };

    // Throws CommandError where the system has no more handles for it.
    ChangeSignals(VQRegLib::CRegLib& session, const std::string& file);
    ~ChangeSignals();
    ChangeSignals(const ChangeSignals&) = delete;
    ChangeSignals& operator=(const ChangeSignals&) = delete;

    // eEnd after a signal, and when nobody reads standard output any more.
    eNews wait(std::chrono::milliseconds limit);

private:
    const FileHandle m_ended;
    ChangeSource m_source;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_CHANGESIGNALS_H
