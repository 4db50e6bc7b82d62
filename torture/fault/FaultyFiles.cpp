#include "fault/FaultyFiles.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

using VQRegLib::COpenFile;

namespace vqtorture {

namespace {

using Kind = Fault::Kind;

const std::vector<Fault> kOpening = {{EIO}, {EMFILE}, {EACCES}, {EINTR}};
const std::vector<Fault> kCreation = {{EIO},    {ENOSPC}, {EDQUOT}, {EMFILE},
                                      {EACCES}, {EROFS},  {EINTR}};
const std::vector<Fault> kReading = {
    {EIO}, {EIO, Kind::eHalf}, {EIO, Kind::eOneByte}, {EINTR}, {EINTR, Kind::eHalf}};
const std::vector<Fault> kWriting = {
    {ENOSPC}, {ENOSPC, Kind::eHalf},  {ENOSPC, Kind::eOneByte}, {EDQUOT}, {EDQUOT, Kind::eHalf},
    {EIO},    {EINTR, Kind::eOneByte}};
const std::vector<Fault> kClosing = {
    {EIO, Kind::eAfter}, {ENOSPC, Kind::eAfter}, {EDQUOT, Kind::eAfter}, {EINTR, Kind::eAfter}};
const std::vector<Fault> kMode = {{EIO}, {EACCES}, {EROFS}};
const std::vector<Fault> kNames = {{EIO}, {ENOSPC}, {EDQUOT}, {EACCES}, {EROFS}};
const std::vector<Fault> kLooking = {{EIO}, {EACCES}};
const std::vector<Fault> kWaiting = {{EIO}, {ENOSPC}, {EDQUOT}};

std::size_t partOf(std::size_t size, Kind kind) {
    return kind == Kind::eHalf      ? size / 2
           : kind == Kind::eOneByte ? std::min<std::size_t>(size, 1)
                                    : 0;
}

}  // namespace

FaultyFiles::FaultyFiles(Place place) : m_place(place) {
    VQRegLib::CFileOps::replace(this);
}

FaultyFiles::~FaultyFiles() {
    VQRegLib::CFileOps::replace(nullptr);
}

void FaultyFiles::arm(std::vector<Plan> plans) {
    m_plans = std::move(plans);
    m_isArmed = true;
}

void FaultyFiles::armDeath(std::size_t at, bool isAfterwards) {
    m_mayDie = true;
    m_deathAt = at;
    m_diesAfterwards = isAfterwards;
    m_isArmed = true;
}

// The fault of this call; null when it is to work.
const Fault* FaultyFiles::next(const char* name, const std::vector<Fault>& faults) {
    const std::size_t call = m_calls++;
    for (const Plan& plan : m_plans) {
        if (plan.concerns(call)) {
            m_failed += std::string(name) + " ";
            return &faults[plan.choice % faults.size()];
        }
    }
    return nullptr;
}

template <typename Call>
auto FaultyFiles::perform(const char* name, const std::vector<Fault>& faults, Call&& call)
    -> decltype(call(nullptr)) {
    if (!m_isArmed) {
        return call(nullptr);
    }
    const Fault* const fault = next(name, faults);
    const bool dies = m_mayDie && m_calls == m_deathAt + 1;
    if (dies && !m_diesAfterwards) {
        ::raise(SIGKILL);
    }
    auto result = call(fault);
    if (dies) {
        ::raise(SIGKILL);
    }
    if (fault) {
        errno = fault->error;
    }
    return result;
}

COpenFile FaultyFiles::openForReading(const char* path) {
    return perform("open", kOpening, [&](const Fault* fault) {
        return fault ? COpenFile() : CFileOps::openForReading(path);
    });
}

COpenFile FaultyFiles::createForWriting(const char* path, std::uint64_t size) {
    return perform("create", kCreation, [&](const Fault* fault) {
        return fault ? COpenFile() : CFileOps::createForWriting(path, size);
    });
}

std::size_t FaultyFiles::read(void* buffer, std::size_t size, COpenFile& file) {
    return perform("read", kReading, [&](const Fault* fault) {
        return CFileOps::read(buffer, fault ? partOf(size, fault->kind) : size, file);
    });
}

std::size_t FaultyFiles::writePieces(std::span<const std::string_view> pieces,
                                     const COpenFile& file) {
    return perform("write", kWriting, [&](const Fault* fault) {
        if (!fault) {
            return CFileOps::writePieces(pieces, file);
        }
        const std::size_t some = partOf(pieces.size(), fault->kind);
        const std::size_t whole =
            some > 1 ? CFileOps::writePieces(pieces.first(some - 1), file) : 0;
        if (some == 0) {
            return std::size_t{0};
        }
        const std::string_view byte = pieces[some - 1].substr(0, 1);
        return whole + CFileOps::writePieces({&byte, 1}, file);
    });
}

int FaultyFiles::close(COpenFile file) {
    return perform("close", kClosing, [&](const Fault* fault) {
        const int result = CFileOps::close(std::move(file));
        return fault ? -1 : result;
    });
}

int FaultyFiles::makeWritableForAll(const char* path, bool* holdsText) {
    return perform("mode", kMode, [&](const Fault* fault) {
        return fault ? -1 : CFileOps::makeWritableForAll(path, holdsText);
    });
}

int FaultyFiles::makeWritableForAll(const COpenFile& file) {
    return perform("mode", kMode, [&](const Fault* fault) {
        return fault ? -1 : CFileOps::makeWritableForAll(file);
    });
}

int FaultyFiles::unlink(const char* path) {
    return perform("unlink", kMode,
                   [&](const Fault* fault) { return fault ? -1 : CFileOps::unlink(path); });
}

int FaultyFiles::link(const char* path, const char* newPath) {
    return perform("link", kNames, [&](const Fault* fault) {
        if (m_place != Place::eUsual) {
            errno = CFileOps::exists(newPath) ? EEXIST : EPERM;
            return -1;
        }
        return fault ? -1 : CFileOps::link(path, newPath);
    });
}

int FaultyFiles::rename(const char* path, const char* newPath) {
    return perform("rename", kNames, [&](const Fault* fault) {
        return fault ? -1 : CFileOps::rename(path, newPath);
    });
}

int FaultyFiles::exchange(const char* path, const char* other) {
    return perform("exchange", kNames, [&](const Fault* fault) {
        if (m_place == Place::eNeither) {
            errno = EINVAL;
            return -1;
        }
        return fault ? -1 : CFileOps::exchange(path, other);
    });
}

int FaultyFiles::sendOut(const COpenFile& file) {
    return perform("send", kWaiting,
                   [&](const Fault* fault) { return fault ? -1 : CFileOps::sendOut(file); });
}

int FaultyFiles::syncData(const COpenFile& file) {
    return perform("data", kWaiting,
                   [&](const Fault* fault) { return fault ? -1 : CFileOps::syncData(file); });
}

int FaultyFiles::syncNames(const char* path) {
    return perform("names", kWaiting,
                   [&](const Fault* fault) { return fault ? -1 : CFileOps::syncNames(path); });
}

int FaultyFiles::copySynced(const char* path, const char* newPath) {
    return perform("copy", kCreation, [&](const Fault* fault) {
        return fault ? -1 : CFileOps::copySynced(path, newPath);
    });
}

bool FaultyFiles::exists(const char* path) {
    return perform("exists", kLooking,
                   [&](const Fault* fault) { return !fault && CFileOps::exists(path); });
}

}  // namespace vqtorture
