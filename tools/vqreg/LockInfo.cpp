#include "tools/vqreg/LockInfo.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>

#include "tools/vqreg/FileHandle.h"

namespace vqreg {

namespace {

constexpr char kDirectory[] = "/dev/shm/";
constexpr std::size_t kLongestName = NAME_MAX;
constexpr char kSemaphorePrefix[] = "sem.REG-CHANGENOTIF-SEM-BF96420F-BEA8-4a58-AA2E-FA2A7AE7F5A5-";

// What the lock object holds: who has written down that it holds the lock, and since when.
struct HolderNote {
    std::int64_t pid;
    std::int64_t since;
};

// What the object of the block holds, and what the segment begins with.
struct BlockRecord {
    char magic[8];
    std::uint64_t ipcNamespace;
    std::int64_t id;
    unsigned char lot[16];
};
struct SegmentHeader {
    char magic[8];
    std::uint64_t size;
    unsigned char lot[16];
    char name[32];
};
constexpr std::string_view kBlockMagic = "CPBlock1";

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

// Reads the beginning of an object, and tells which file that is.
template <typename Object>
std::optional<Object> readObject(const std::string& path, struct stat& status) {
    const FileHandle file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    char bytes[sizeof(Object)];
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        ::pread(file.get(), bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
        return std::nullopt;
    }
    Object object;
    std::memcpy(&object, bytes, sizeof object);
    return object;
}

// The process that has the kernel's exclusive lock on a file; -1 when it is out of sight. A line is
// "1: FLOCK  ADVISORY  WRITE 731 00:1b:4711 0 EOF"; those who wait have "->" before the kind.
std::optional<std::int32_t> holderOfFileLock(const struct stat& file) {
    const std::string place =
        fmt::format("{:02x}:{:02x}:{}", major(file.st_dev), minor(file.st_dev), file.st_ino);
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream fields(line);
        std::string number, kind, manner, access, at;
        std::int32_t pid = 0;
        if (fields >> number >> kind >> manner >> access >> pid >> at && kind == "FLOCK" &&
            access == "WRITE" && at == place) {
            return pid > 0 ? pid : -1;
        }
    }
    return std::nullopt;
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
    return sharedObjectPath("CPLock", file);
}

std::string LockHolder::text() const {
    if (pid < 0) {
        return "a process out of sight";
    }
    const std::string program = programOf(pid);
    std::string result = fmt::format("process {}", pid);
    if (!program.empty()) {
        result += fmt::format(" ({})", program);
    }
    if (since != 0) {
        const std::int64_t seconds = std::max<std::int64_t>(0, std::time(nullptr) - since);
        result += fmt::format(", for {} s", seconds);
    }
    return result;
}

std::optional<LockHolder> lockHolder(const std::string& file) {
    struct stat status {};
    const auto note = readObject<HolderNote>(lockObjectPath(file), status);
    const auto pid = status.st_ino != 0 ? holderOfFileLock(status) : std::nullopt;
    if (!pid) {
        return std::nullopt;
    }
    return LockHolder{*pid, note && note->pid == *pid ? note->since : 0};
}

std::optional<std::int64_t> blockSegment(const std::string& file) {
    struct stat status {};
    const auto record = readObject<BlockRecord>(sharedObjectPath("CPBlock", file), status);
    if (!record || std::string_view(record->magic, sizeof record->magic) != kBlockMagic ||
        record->id != static_cast<int>(record->id)) {
        return std::nullopt;
    }
    return record->id;
}

std::size_t attachments(std::int64_t segment) {
    struct shmid_ds status {};
    return ::shmctl(static_cast<int>(segment), IPC_STAT, &status) == 0 ? status.shm_nattch : 0;
}

std::optional<std::uint64_t> changeStamp(const std::string& file) {
    const auto id = blockSegment(file);
    struct shmid_ds status {};
    if (!id || ::shmctl(static_cast<int>(*id), IPC_STAT, &status) != 0 ||
        status.shm_segsz != sizeof(SegmentHeader) + sizeof(std::uint64_t)) {
        return std::nullopt;
    }
    const void* const segment = ::shmat(static_cast<int>(*id), nullptr, SHM_RDONLY);
    if (segment == reinterpret_cast<void*>(-1)) {
        return std::nullopt;
    }
    SegmentHeader header;
    std::uint64_t stamp = 0;
    std::memcpy(&header, segment, sizeof header);
    std::memcpy(&stamp, static_cast<const char*>(segment) + sizeof header, sizeof stamp);
    ::shmdt(segment);
    const bool isBlock = std::string_view(header.magic, sizeof header.magic) == kBlockMagic;
    return isBlock && stamp != 0 ? std::optional(stamp) : std::nullopt;
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
