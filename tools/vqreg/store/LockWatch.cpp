#include "tools/vqreg/store/LockWatch.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/terminal/LastWords.h"
#include "tools/vqreg/terminal/Output.h"

namespace vqreg {

namespace {

constexpr double kPatience = 2;      // seconds until the holder is named
constexpr double kLookAgain = 0.05;  // seconds between looks when the time is up

struct Obstacle {
    std::string file;
    LockHolder holder;
};

// A process that holds one of the locks itself is at work and does not wait.
std::optional<Obstacle> findObstacle(const std::vector<std::string>& files) {
    for (const std::string& file : files) {
        const auto holder = lockHolder(file);
        if (holder) {
            return holder->pid == ::getpid() ? std::nullopt
                                             : std::optional<Obstacle>({file, *holder});
        }
    }
    return std::nullopt;
}

}  // namespace

LockWatch::LockWatch(std::vector<std::string> files, double timeoutSeconds)
    : m_files(std::move(files)), m_timeoutSeconds(timeoutSeconds), m_thread([this] { run(); }) {}

LockWatch::~LockWatch() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_isOver = true;
    }
    m_over.notify_one();
    m_thread.join();
}

bool LockWatch::waitFor(double seconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_over.wait_for(lock, std::chrono::duration<double>(seconds),
                           [this] { return m_isOver; });
}

void LockWatch::run() {
    const double patience = std::min(kPatience, m_timeoutSeconds);
    if (waitFor(patience)) {
        return;
    }
    if (m_timeoutSeconds > kPatience) {
        warn();
        if (waitFor(m_timeoutSeconds - kPatience)) {
            return;
        }
    }
    do {
        endProcessIfWaiting();
    } while (!waitFor(kLookAgain));
}

void LockWatch::warn() const {
    if (const auto obstacle = findObstacle(m_files)) {
        note(fmt::format("waiting for the lock of {}, held by {}", obstacle->file,
                         obstacle->holder.text()));
    }
}

void LockWatch::endProcessIfWaiting() const {
    if (const auto obstacle = findObstacle(m_files)) {
        note(fmt::format("the lock of {} was not obtained within {:g} s; it is held by {}",
                         obstacle->file, m_timeoutSeconds, obstacle->holder.text()));
        if (!LastWords::current().empty()) {
            note(LastWords::current());
        }
        ::_exit(static_cast<int>(eExit::eLocked));
    }
}

}  // namespace vqreg
