// Everything that may tell of a change of a store's file, as descriptors.
#ifndef TOOLS_VQREG_STORE_CHANGESOURCE_H
#define TOOLS_VQREG_STORE_CHANGESOURCE_H

#include <VQRegLib.h>
#include <poll.h>

#include <array>
#include <chrono>
#include <string>

#include "tools/vqreg/base/FileHandle.h"

namespace vqreg {

// How often one looks at the file all the same.
constexpr auto kSlowPoll = std::chrono::seconds(1);

// The library's notification and the changes in the file's directory.
class ChangeSource {
public:
    // Throws CommandError where the system has no more handles for it.
    ChangeSource(VQRegLib::CRegLib& session, const std::string& file);
    ~ChangeSource();
    ChangeSource(const ChangeSource&) = delete;
    ChangeSource& operator=(const ChangeSource&) = delete;

    // One of them is readable when there may be news.
    std::array<pollfd, 2> descriptors() const;
    // From here on only what happens later is news.
    void drain();

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
    const FileHandle m_directory;
    Handler m_handler;
};

// A descriptor, or a CommandError that says what cannot be had.
int checkedDescriptor(int fd, const char* what);
// What an eventfd is for.
void raiseEvent(int fd);

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_CHANGESOURCE_H
