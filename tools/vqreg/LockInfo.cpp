#include "tools/vqreg/LockInfo.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>

#include "tools/vqreg/FileHandle.h"

namespace vqreg {

namespace {

constexpr char kDirectory[] = "/dev/shm/";
constexpr std::size_t kLongestName = NAME_MAX;
constexpr char kSemaphorePrefix[] = "sem.REG-CHANGENOTIF-SEM-BF96420F-BEA8-4a58-AA2E-FA2A7AE7F5A5-";

// The lock object on a machine of this word size: tag, mutex, holder, since when.
struct LockObject {
    struct Tag {
        char magic[8];
        std::uint32_t version;
        std::uint32_t wordSize;
        std::uint32_t libc;
        std::uint32_t mutexSize;
    };
    Tag tag;
    alignas(pthread_mutex_t) char mutex[sizeof(pthread_mutex_t)];
    std::int32_t holderPid;
    std::int64_t heldSince;
};

std::string absolutePath(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(directory.c_str(), nullptr),
                                                               &std::free);
    if (!resolved) {
        return path;
    }
    std::string result(resolved.get());
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

// FNV-1a with its 128-bit parameters, in hexadecimal.
std::string hash128(const std::string& text) {
    const uint128 prime = (uint128{1} << 88) + 0x13b;
    uint128 hash = (uint128{0x6c62272e07bb0142u} << 64) + 0x62b821756295c58du;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * prime;
    }
    return fmt::format("{:016x}{:016x}", static_cast<std::uint64_t>(hash >> 64),
                       static_cast<std::uint64_t>(hash & ~std::uint64_t{0}));
}

// Reads a whole object of exactly this size.
template <typename Object>
std::optional<Object> readObject(const std::string& path) {
    const FileHandle file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<std::size_t>(status.st_size) != sizeof(Object)) {
        return std::nullopt;
    }
    char bytes[sizeof(Object)];
    if (::read(file.get(), bytes, sizeof bytes) != static_cast<ssize_t>(sizeof bytes)) {
        return std::nullopt;
    }
    Object object;
    std::memcpy(&object, bytes, sizeof object);
    return object;
}

// Its owners share a lock on the file, so that nobody gets one alone. The lock that is taken here
// when there is no owner ends with the look.
bool hasOwner(const std::string& path) {
    const FileHandle file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    return file.isOpen() && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0;
}

}  // namespace

std::string sharedObjectPath(const std::string& kind, const std::string& file) {
    const std::string whole = kind + "." + encoded(absolutePath(file));
    if (whole.size() <= kLongestName) {
        return kDirectory + whole;
    }
    const std::string hash = "#" + hash128(whole);
    return kDirectory + whole.substr(0, kLongestName - hash.size()) + hash;
}

std::string programOf(std::int32_t pid) {
    std::ifstream in(fmt::format("/proc/{}/comm", pid));
    std::string name;
    std::getline(in, name);
    return name;
}

std::string lockObjectPath(const std::string& file) {
    return sharedObjectPath("CPMutex", file);
}

std::string LockHolder::text() const {
    const std::string program = programOf(pid);
    const std::int64_t seconds = std::max<std::int64_t>(0, std::time(nullptr) - since);
    return program.empty() ? fmt::format("process {}, for {} s", pid, seconds)
                           : fmt::format("process {} ({}), for {} s", pid, program, seconds);
}

std::optional<LockHolder> lockHolder(const std::string& file) {
    const auto object = readObject<LockObject>(lockObjectPath(file));
    if (!object || std::memcmp(object->tag.magic, "CPMutex", 8) != 0 || object->tag.version != 1 ||
        object->holderPid == 0) {
        return std::nullopt;
    }
    return LockHolder{object->holderPid, object->heldSince};
}

std::optional<std::uint64_t> changeStamp(const std::string& file) {
    return readObject<std::uint64_t>(sharedObjectPath("CPSharedMemory", file));
}

std::vector<NotificationSemaphore> notificationSemaphores() {
    std::vector<NotificationSemaphore> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(kDirectory, error)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(kSemaphorePrefix)) {
            found.push_back({name, hasOwner(entry.path().string())});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return found;
}

}  // namespace vqreg
