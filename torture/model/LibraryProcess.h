// The library itself as a process that a Player can drive.
#ifndef VQTORTURE_MODEL_LIBRARY_PROCESS_H
#define VQTORTURE_MODEL_LIBRARY_PROCESS_H

#include <array>
#include <memory>
#include <string>

#include "VQRegLib.h"
#include "model/Watching.h"

namespace vqtorture::model {

class LibraryProcess {
public:
    using Session = VQRegLib::CRegLib;
    using Key = VQRegLib::CRegKey;
    using Update = VQRegLib::CRegUpdate;
    using Handler = CountingHandler;

    /// @param directory  where the files are
    explicit LibraryProcess(std::string directory);
    ~LibraryProcess();
    LibraryProcess(const LibraryProcess&) = delete;
    LibraryProcess& operator=(const LibraryProcess&) = delete;

    std::unique_ptr<Session> open(const char* file, const char* root, int* result) const;
    std::string dumpOf(Session& session) const;
    vqtest::Fields lookWhoIsTold(Session& session, const char* file,
                                 const std::array<Handler, kChangeHandlers>& handlers) const;

private:
    std::string m_directory;
    int m_printed;  // takes the place of the standard output
};

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_LIBRARY_PROCESS_H
