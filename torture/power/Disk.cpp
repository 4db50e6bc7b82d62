#include "power/Disk.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "portable/FileDescriptor.h"

namespace vqtorture {

namespace {

using VQRegLib::CFileDescriptor;

// The same for ext4 and xfs, whose headers are not everywhere.
constexpr unsigned long kShutdown = _IOR('X', 125, std::uint32_t);
constexpr std::uint32_t kWithoutLog = 2;

constexpr unsigned kRoomForTheDisk = 64;  // megabytes beside its content

}  // namespace

Disk::Disk(Run& run, const FileSystem& fileSystem)
    : m_run(run),
      m_fileSystem(fileSystem),
      m_outerImage(run.directory() + "/outer.image"),
      m_outerDirectory(run.directory() + "/outer"),
      m_image(m_outerDirectory + "/disk.image"),
      m_directory(run.directory() + "/mounted") {
    std::filesystem::create_directories(m_outerDirectory);
    std::filesystem::create_directories(m_directory);
    makeImage(m_outerImage, fileSystem.megabytes + kRoomForTheDisk);
    runProgram("mkfs.ext4 -q -F " + m_outerImage);
    m_outer.emplace(m_outerImage, m_outerDirectory, "ext4", "");
    makeImage(m_image, fileSystem.megabytes);
    runProgram(std::string(fileSystem.maker) + ' ' + m_image);
    ::sync();
    m_inner.emplace(m_image, m_directory, fileSystem.type, fileSystem.options);
}

// Pages in no order.
void Disk::writeAPartOfTheCache() {
    const CFileDescriptor file(::open(m_image.c_str(), O_RDWR | O_CLOEXEC));
    const std::uint64_t part = m_run.below(3);
    if (part == 0) {
        return;
    }
    if (part == 1) {
        ::fsync(file.get());
        return;
    }
    constexpr off_t kPiece = 64 * 1024;
    const std::uint64_t pieces = (std::uint64_t{m_fileSystem.megabytes} << 20) / kPiece;
    for (std::uint64_t piece = 0; piece < pieces; ++piece) {
        if (m_run.below(2) == 0) {
            ::sync_file_range(file.get(), static_cast<off_t>(piece) * kPiece, kPiece,
                              SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
        }
    }
}

void Disk::cutPower() {
    writeAPartOfTheCache();
    const CFileDescriptor directory(::open(m_outerDirectory.c_str(), O_RDONLY | O_CLOEXEC));
    std::uint32_t how = kWithoutLog;
    if (::ioctl(directory.get(), kShutdown, &how) != 0) {
        throw CannotRun(std::string("cannot shut ext4 down: ") + std::strerror(errno));
    }
}

void Disk::start() {
    m_inner.reset();
    m_outer.reset();
    try {
        m_outer.emplace(m_outerImage, m_outerDirectory, "ext4", "");
        m_inner.emplace(m_image, m_directory, m_fileSystem.type, m_fileSystem.options);
    } catch (const CannotRun& reason) {  // but it could before
        throw Violation(std::string("after the power cut: ") + reason.what());
    }
}

}  // namespace vqtorture
