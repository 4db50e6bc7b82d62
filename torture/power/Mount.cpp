#include "power/Mount.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "portable/FileDescriptor.h"
#include "support/Torture.h"
#include "support/TraceLog.h"

namespace vqtorture {

namespace {

using VQRegLib::CFileDescriptor;

[[noreturn]] void cannot(const std::string& what) {
    throw CannotRun(what + ": " + std::strerror(errno));
}

// Of a loop device on the image; which one is free others may find out as well.
std::string attach(const CFileDescriptor& image, std::optional<CFileDescriptor>& device) {
    const CFileDescriptor control(::open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    constexpr int kAttempts = 100;
    for (int attempt = 0; control.isOpen() && attempt < kAttempts; ++attempt) {
        const int number = ::ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) {
            break;
        }
        const std::string path = "/dev/loop" + std::to_string(number);
        device.emplace(::open(path.c_str(), O_RDWR | O_CLOEXEC));
        loop_config config{};
        config.fd = static_cast<__u32>(image.get());
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        if (device->isOpen() && ::ioctl(device->get(), LOOP_CONFIGURE, &config) == 0) {
            return path;
        }
    }
    cannot("loop device");
}

}  // namespace

Mount::Mount(const std::string& image, std::string directory, const std::string& type,
             const std::string& options)
    : m_directory(std::move(directory)) {
    if (!vqtest::inPrivateRoot()) {
        throw CannotRun("it mounts, and does so in a private root only");
    }
    const CFileDescriptor file(::open(image.c_str(), O_RDWR | O_CLOEXEC));
    if (!file.isOpen()) {
        cannot(image);
    }
    std::optional<CFileDescriptor> device;
    const std::string path = attach(file, device);
    if (::mount(path.c_str(), m_directory.c_str(), type.c_str(), 0, options.c_str()) != 0) {
        cannot("mount " + type);
    }
}

Mount::~Mount() {
    if (::umount2(m_directory.c_str(), 0) != 0) {
        ::umount2(m_directory.c_str(), MNT_DETACH);
    }
}

void runProgram(const std::string& command) {
    if (std::system((command + " >/dev/null 2>&1").c_str()) != 0) {
        throw CannotRun(command + " fails, or is not there");
    }
}

void makeImage(const std::string& path, unsigned megabytes) {
    const CFileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const int error = ::posix_fallocate(file.get(), 0, static_cast<off_t>(megabytes) << 20);
    if (error != 0) {
        errno = error;
        cannot(path);
    }
}

}  // namespace vqtorture
