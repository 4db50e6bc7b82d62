// The library itself as a process that a Player can drive.
#ifndef VQTORTURE_MODEL_LIBRARY_PROCESS_H
#define VQTORTURE_MODEL_LIBRARY_PROCESS_H

#include <memory>
#include <string>

#include "VQRegLib.h"

namespace vqtorture::model {

class LibraryProcess {
public:
    using Session = VQRegLib::CRegLib;
    using Key = VQRegLib::CRegKey;

    /// @param directory  where the files are
    explicit LibraryProcess(std::string directory);
    ~LibraryProcess();
    LibraryProcess(const LibraryProcess&) = delete;
    LibraryProcess& operator=(const LibraryProcess&) = delete;

    std::unique_ptr<Session> open(const char* file, const char* root, int* result) const;
    std::string dumpOf(Session& session) const;

private:
    std::string m_directory;
    int m_printed;  // takes the place of the standard output
};

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_LIBRARY_PROCESS_H
