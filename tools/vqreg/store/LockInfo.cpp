#include "tools/vqreg/store/LockInfo.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string_view>

#include "RegLib/text/NotificationName.h"
#include "portable/FileLocks.h"
#include "portable/ObjectName.h"
#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/base/FileText.h"

namespace vqreg {

namespace {

constexpr std::string_view kBlockTag(VQRegLib::kBlockTag, sizeof VQRegLib::kBlockTag);

// Reads the beginning of an object, and tells which file that is. What follows there is of later
// versions and need not be there.
template <typename Object>
std::optional<Object> readObject(const std::string& path, std::size_t size, struct stat& status) {
    const FileHandle file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    Object object{};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        ::pread(file.get(), &object, size, 0) != static_cast<ssize_t>(size)) {
        return std::nullopt;
    }
    return object;
}

// Its owners share a lock on the file, so that nobody gets one alone. The lock that is taken here
// when there is no owner ends with the look.
bool hasOwner(const std::string& path) {
    const FileHandle file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    return file.isOpen() && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0;
}

}  // namespace

std::string programOf(std::int32_t pid) {
    const std::string text = textOfFile(fmt::format("/proc/{}/comm", pid)).value_or("");
    return text.substr(0, text.find('\n'));
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
    const auto note =
        readObject<VQRegLib::CHolderNote>(VQRegLib::objectPath(VQRegLib::kLockKind, file),
                                          offsetof(VQRegLib::CHolderNote, mark), status);
    const std::int32_t pid =
        status.st_ino != 0 ? VQRegLib::holderOfFileLock(status.st_dev, status.st_ino) : 0;
    if (pid == 0) {
        return std::nullopt;
    }
    return LockHolder{pid, note && note->pid == pid ? note->sinceSec : 0};
}

std::optional<std::int64_t> blockSegment(const std::string& file) {
    struct stat status {};
    const auto record = readObject<VQRegLib::CBlockRecord>(
        VQRegLib::objectPath(VQRegLib::kBlockKind, file), sizeof(VQRegLib::CBlockRecord), status);
    if (!record || std::string_view(record->tag, sizeof record->tag) != kBlockTag ||
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
        status.shm_segsz != sizeof(VQRegLib::CBlockHeader) + sizeof(std::uint64_t)) {
        return std::nullopt;
    }
    const void* const segment = ::shmat(static_cast<int>(*id), nullptr, SHM_RDONLY);
    if (segment == reinterpret_cast<void*>(-1)) {
        return std::nullopt;
    }
    VQRegLib::CBlockHeader header;
    std::uint64_t stamp = 0;
    std::memcpy(&header, segment, sizeof header);
    std::memcpy(&stamp, static_cast<const char*>(segment) + sizeof header, sizeof stamp);
    ::shmdt(segment);
    const bool isBlock = std::string_view(header.tag, sizeof header.tag) == kBlockTag;
    return isBlock && stamp != 0 ? std::optional(stamp) : std::nullopt;
}

std::vector<NotificationSemaphore> notificationSemaphores() {
    const std::string prefix =
        std::string(VQRegLib::kSemaphoreFilePrefix) + VQRegLib::kNotificationPrefix;
    std::vector<NotificationSemaphore> found;
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator(VQRegLib::kObjectDirectory, error)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(prefix)) {
            found.push_back({name, hasOwner(entry.path().string())});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return found;
}

}  // namespace vqreg
