#include "model/LibraryProcess.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace vqtorture::model {

namespace {

int checked(int result) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
    return result;
}

std::string contentOf(int descriptor) {
    std::string text(static_cast<std::size_t>(::lseek(descriptor, 0, SEEK_END)), '\0');
    text.resize(static_cast<std::size_t>(::pread(descriptor, text.data(), text.size(), 0)));
    return text;
}

}  // namespace

LibraryProcess::LibraryProcess(std::string directory)
    : m_directory(std::move(directory)), m_printed(checked(::memfd_create("dump", MFD_CLOEXEC))) {}

LibraryProcess::~LibraryProcess() {
    ::close(m_printed);
}

std::unique_ptr<VQRegLib::CRegLib> LibraryProcess::open(const char* file, const char* root,
                                                        int* result) const {
    const std::string path = m_directory + "/" + file;
    return std::make_unique<Session>(path.c_str(), root, Session::eLocationDefault, result);
}

std::string LibraryProcess::dumpOf(Session& session) const {
    std::fflush(stdout);
    checked(::ftruncate(m_printed, 0));
    checked(static_cast<int>(::lseek(m_printed, 0, SEEK_SET)));
    const int kept = checked(::dup(STDOUT_FILENO));
    checked(::dup2(m_printed, STDOUT_FILENO));
    session.dump();
    std::fflush(stdout);
    checked(::dup2(kept, STDOUT_FILENO));
    ::close(kept);
    return contentOf(m_printed);
}

vqtest::Fields LibraryProcess::lookWhoIsTold(
    Session& session, const char* file,
    const std::array<Handler, kChangeHandlers>& handlers) const {
    const std::string path = m_directory + "/" + file;
    if (!session.RootKey() || !std::filesystem::exists(path)) {
        return {"nobody"};
    }
    return model::lookWhoIsTold(session, path, handlers);
}

}  // namespace vqtorture::model
