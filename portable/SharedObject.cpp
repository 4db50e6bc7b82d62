#include "portable/SharedObject.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "portable/FileDescriptor.h"
#include "portable/SharedFile.h"

namespace VQRegLib {

namespace {

constexpr std::size_t kLongestName = NAME_MAX;
constexpr int kAttempts = 100;  // a name may come and go while it is being opened

std::string absolutePath(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    char resolved[PATH_MAX];
    if (!realpath(directory.c_str(), resolved)) {
        return path;  // no such directory: no file can be there either
    }
    std::string result(resolved);
    if (result.back() != '/') {
        result += '/';
    }
    return result + name;
}

std::string encoded(const std::string& path) {
    std::string result;
    for (const char c : path) {
        if (c == '/') {
            result += "%2F";
        } else if (c == '%') {
            result += "%25";
        } else {
            result += c;
        }
    }
    return result;
}

__extension__ using uint128 = unsigned __int128;

}  // namespace

CSharedPath::CSharedPath(const std::string& path) : m_text(absolutePath(path)) {}

const char* CSharedObject::directory() {
    return "/dev/shm";
}

std::string CSharedObject::nameForPath(const std::string& kind, const CSharedPath& path) {
    std::string whole = kind + "." + encoded(path.text());
    if (whole.size() <= kLongestName) {
        return whole;
    }
    const std::string hash = "#" + hashOf(whole);
    return whole.substr(0, kLongestName - hash.size()) + hash;
}

// FNV-1a with its 128-bit parameters.
std::string CSharedObject::hashOf(const std::string& text) {
    const uint128 prime = (uint128{1} << 88) + 0x13b;
    uint128 hash = (uint128{0x6c62272e07bb0142u} << 64) + 0x62b821756295c58du;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * prime;
    }
    char digits[33];
    std::snprintf(digits, sizeof digits, "%016llx%016llx",
                  static_cast<unsigned long long>(hash >> 64),
                  static_cast<unsigned long long>(hash & ~std::uint64_t{0}));
    return digits;
}

CSharedObject::~CSharedObject() {
    unmap();
}

void CSharedObject::unmap() {
    if (m_address) {
        munmap(m_address, m_size);
        m_address = nullptr;
    }
}

int CSharedObject::open(const std::string& name, std::size_t size, int (*initialise)(void*)) {
    m_size = size;
    const std::string path = std::string(directory()) + "/" + name;
    int error = 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Without O_CREAT first: a directory like this one may refuse O_CREAT on a file of another
        // user even to root.
        error = openExisting(path);
        if (error != ENOENT) {
            return error;
        }
        error = create(path, initialise);
        if (error != EEXIST) {
            return error;
        }
    }
    return error;
}

int CSharedObject::openExisting(const std::string& path) {
    const CFileDescriptor file(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen()) {
        return errno;
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) != m_size) {
        return EINVAL;
    }
    m_creator = false;
    return map(file.get());
}

int CSharedObject::create(const std::string& path, int (*initialise)(void*)) {
    const CFileDescriptor file(::open(directory(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file.isOpen()) {
        return errno;
    }
    // Reserves the pages: touching one that a full file system cannot give would be fatal.
    int error = posix_fallocate(file.get(), 0, static_cast<off_t>(m_size));
    if (error == 0) {
        error = map(file.get());
    }
    if (error == 0 && initialise) {
        error = initialise(m_address);
    }
    if (error == 0 && fchmod(file.get(), 0666) != 0) {
        error = errno;
    }
    if (error == 0) {
        error = CSharedFile::giveName(file.get(), path);
    }
    if (error != 0) {
        unmap();
        return error;
    }
    m_creator = true;
    return 0;
}

int CSharedObject::map(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return errno;
    }
    m_inode = status.st_ino;
    void* const address = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        return errno;
    }
    m_address = address;
    return 0;
}

}  // namespace VQRegLib
