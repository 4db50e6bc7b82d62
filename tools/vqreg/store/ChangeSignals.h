// Everything that may tell of a change of a store's file.
#ifndef TOOLS_VQREG_STORE_CHANGESIGNALS_H
#define TOOLS_VQREG_STORE_CHANGESIGNALS_H

#include <VQRegLib.h>

#include <chrono>
#include <string>

#include "tools/vqreg/base/FileHandle.h"

namespace vqreg {

// The library's notification and the changes in the file's directory. While an object lives, SIGINT
// and SIGTERM end the wait instead of the process. One at a time.
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
    class Handler : public VQRegLib::CRegistryChangeHandler {
    public:
        explicit Handler(int fd) : m_fd(fd) {}
        void OnRegistryChange() override;

    private:
        const int m_fd;
    };

    VQRegLib::CRegLib& m_session;
    const FileHandle m_notified;
    const FileHandle m_ended;
    const FileHandle m_directory;
    Handler m_handler;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_CHANGESIGNALS_H
