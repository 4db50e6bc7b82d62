// News of a file's directory.
#ifndef TOOLS_VQREG_STORE_DIRECTORYEVENTS_H
#define TOOLS_VQREG_STORE_DIRECTORYEVENTS_H

#include <chrono>
#include <string>

#include "tools/vqreg/base/FileHandle.h"

namespace vqreg {

// Wakes with every change in the directory of a file. Where the system has no handle for that, the
// descriptor is -1, of which poll takes no notice, and the time alone counts.
class DirectoryEvents {
public:
    explicit DirectoryEvents(const std::string& file);

    int fd() const { return m_handle.get(); }
    // Takes what has come, without waiting; whether there was something.
    bool takeNews() const;
    void wait(std::chrono::milliseconds limit) const;

private:
    const FileHandle m_handle;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_DIRECTORYEVENTS_H
