// Processes that watch a store, and the semaphores on which they hear of changes.
#ifndef VQTEST_SEMAPHORE_WATCHERS_H
#define VQTEST_SEMAPHORE_WATCHERS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/Agent.h"
#include "support/WatchedStore.h"

namespace vqtest {

// The test process itself only sends; others watch.
class SemaphoreWatchers : public WatchedStore {
protected:
    std::unique_ptr<Agent> watchingAgent() const {
        auto agent = std::make_unique<Agent>(VQREG_AGENT_PATH);
        EXPECT_EQ(agent->open(file.path()), VQRegLib::REGLIB_OK);
        agent->watch();
        EXPECT_TRUE(waitWatchers(1, agent->pid()));
        return agent;
    }

    // What nobody owns is removed when it is no longer new.
    void expectSweptUntil(const std::vector<std::string>& left) {
        EXPECT_TRUE(waitUntil([&] {
            announceNothing(1);
            return semaphoreFiles() == left;
        })) << testing::PrintToString(semaphoreFiles());
    }

    void expectReached(Agent& agent) {
        const std::uint64_t before = agent.changes();
        announceChange();
        EXPECT_TRUE(waitUntil([&] { return agent.changes() == before + 1; }));
    }
};

// What a process leaves that ends without taking its semaphore along.
inline void leaveSemaphore(const std::string& path, unsigned count = 0) {
    sem_t semaphore{};
    ::sem_init(&semaphore, 1, count);
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(&semaphore), sizeof semaphore);
}

inline bool isOwned(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool isFree = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    ::close(fd);
    return !isFree;
}

}  // namespace vqtest

#endif  // VQTEST_SEMAPHORE_WATCHERS_H
