// What the objects in /dev/shm tell about a store: who holds its lock, when it changed, and who
// listens for changes. They are only read.
#ifndef TOOLS_VQREG_STORE_LOCKINFO_H
#define TOOLS_VQREG_STORE_LOCKINFO_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vqreg {

// The name of a process's program; empty when there is no such process.
std::string programOf(std::int32_t pid);

struct LockHolder {
    std::int32_t pid = 0;    // -1: of a process out of sight
    std::int64_t since = 0;  // seconds since the epoch; 0: unknown

    std::string text() const;  // "process 4711 (agent), for 12 s"
};

// None when nobody holds the lock, or nobody has made it yet.
std::optional<LockHolder> lockHolder(const std::string& file);

// The number of the memory segment that the processes with the store share; none without an object.
std::optional<std::int64_t> blockSegment(const std::string& file);

// How often the segment is in the memory of processes; 0 when it is gone.
std::size_t attachments(std::int64_t segment);

// The time of the last change that the processes agree on, in nanoseconds, odd while one is being
// made; none when no process has the store open.
std::optional<std::uint64_t> changeStamp(const std::string& file);

struct NotificationSemaphore {
    std::string name;      // of its file in /dev/shm
    bool isAlive = false;  // a process owns it
};

std::vector<NotificationSemaphore> notificationSemaphores();

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_LOCKINFO_H
