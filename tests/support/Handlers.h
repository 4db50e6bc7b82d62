// Change handlers for tests, and what the library keeps in the system for their sake.
#ifndef VQTEST_HANDLERS_H
#define VQTEST_HANDLERS_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "VQRegLib.h"
#include "support/Wait.h"

namespace vqtest {

/// Counts its calls, and does in each of them what it was made with.
class Handler : public VQRegLib::CRegistryChangeHandler {
public:
    explicit Handler(std::function<void()> action = {}) : m_action(std::move(action)) {}
    ~Handler() override {
        for (const auto* session : m_sessions) {
            if (*session) {
                (*session)->ClrRegistryChangeHandler(this);
            }
        }
    }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    /// Registers itself until it goes. A session that outlives its handler may be about to call it:
    /// another process can send a notification at any time.
    void watch(const std::unique_ptr<VQRegLib::CRegLib>& session) {
        session->SetRegistryChangeHandler(this);
        m_sessions.push_back(&session);
    }

    void OnRegistryChange() override {
        ++m_begun;
        if (m_action) {
            m_action();
        }
        ++m_calls;
    }

    int begun() const { return m_begun; }
    int calls() const { return m_calls; }  ///< that have returned
    bool waitCalls(int count) const {
        return waitUntil([&] { return m_calls >= count; });
    }
    bool waitBegun(int count) const {
        return waitUntil([&] { return m_begun >= count; });
    }

private:
    std::function<void()> m_action;
    std::vector<const std::unique_ptr<VQRegLib::CRegLib>*> m_sessions;
    std::atomic<int> m_begun{0};
    std::atomic<int> m_calls{0};
};

/// Gives a file another modification time, in whole seconds.
inline void setFileTime(const std::string& path, std::int64_t seconds) {
    const auto time = static_cast<time_t>(seconds);
    const struct timespec times[2] = {{time, 0}, {time, 0}};
    if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

/// Gives a file a time that no file had before. Long ago, so that no write of this day falls on it.
inline void moveFileTime(const std::string& path) {
    // Microseconds of the machine's clock, as seconds: all processes of a test share it.
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    setFileTime(path, 1000 + count % 1'500'000'000);
}

struct ThreadInfo {
    std::string name;
    char state = '?';           ///< 'S': sleeps
    std::uint64_t blocked = 0;  ///< bit n - 1: signal n
};

/// The threads of a process, 0 for the calling one; those that end meanwhile may be missing.
inline std::vector<ThreadInfo> threads(pid_t pid = 0) {
    std::vector<ThreadInfo> result;
    std::error_code error;
    const std::string process = pid == 0 ? "self" : std::to_string(pid);
    const std::string tasks = "/proc/" + process + "/task";
    for (const auto& entry : std::filesystem::directory_iterator(tasks, error)) {
        std::ifstream in(entry.path() / "status");
        ThreadInfo thread;
        std::string line;
        while (std::getline(in, line)) {
            const std::string value = line.substr(std::min(line.find('\t') + 1, line.size()));
            if (line.starts_with("Name:")) {
                thread.name = value;
            } else if (line.starts_with("State:") && !value.empty()) {
                thread.state = value.front();
            } else if (line.starts_with("SigBlk:")) {
                thread.blocked = std::stoull(value, nullptr, 16);
            }
        }
        result.push_back(thread);
    }
    return result;
}

inline long countThreads(const std::string& name, pid_t pid = 0) {
    const std::vector<ThreadInfo> all = threads(pid);
    return std::count_if(all.begin(), all.end(),
                         [&](const ThreadInfo& thread) { return thread.name == name; });
}

/// Waits until that many threads called "FileWatch" sleep: they have had their first look at their
/// files then.
inline bool waitWatchers(long count, pid_t pid = 0) {
    return waitUntil([&] {
        const std::vector<ThreadInfo> all = threads(pid);
        return count == std::count_if(all.begin(), all.end(), [](const ThreadInfo& thread) {
                   return thread.name == "FileWatch" && thread.state == 'S';
               });
    });
}

constexpr char kSemaphorePrefix[] = "REG-CHANGENOTIF-SEM-BF96420F-BEA8-4a58-AA2E-FA2A7AE7F5A5-";

/// The name of the notification semaphore of a process, without what the system adds to it.
inline std::string semaphoreName(pid_t pid = ::getpid()) {
    std::string digits = std::to_string(pid);
    return kSemaphorePrefix + std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

inline std::string semaphoreFile(pid_t pid = ::getpid()) {
    return "/dev/shm/sem." + semaphoreName(pid);
}

inline bool hasSemaphore(pid_t pid = ::getpid()) {
    return std::filesystem::exists(semaphoreFile(pid));
}

/// The files of all notification semaphores, sorted.
inline std::vector<std::string> semaphoreFiles() {
    std::vector<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        if (entry.path().filename().string().starts_with(std::string("sem.") + kSemaphorePrefix)) {
            result.push_back(entry.path().string());
        }
    }
    std::sort(result.begin(), result.end());
    return result;
}

}  // namespace vqtest

#endif  // VQTEST_HANDLERS_H
