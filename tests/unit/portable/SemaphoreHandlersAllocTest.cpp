// How a semaphore goes with its owner: no memory for what that needs, and an exit that comes while it is being
// owned. In an executable of its own, because it replaces calls of the C library.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

#include "portable/Semaphore.h"
#include "support/ForkedChild.h"
#include "support/SemaphoreFixture.h"
#include "support/Wait.h"

using VQRegLib::CPSemaphore;
using vqtest::SemaphoreOf;

namespace {

bool g_hasRoomAtExit = true;
bool g_hasRoomAtFork = true;

thread_local bool t_isHeldBeforeItsLock = false;
std::atomic<bool> g_isInside{false};
std::atomic<bool> g_mayLeave{false};

class SemaphoreHandlers : public vqtest::SemaphoreTest {
protected:
    ~SemaphoreHandlers() override { g_hasRoomAtExit = g_hasRoomAtFork = true; }
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
int __real_atexit(void (*handler)());
int __wrap_atexit(void (*handler)());
int __real_pthread_atfork(void (*before)(), void (*inParent)(), void (*inChild)());
int __wrap_pthread_atfork(void (*before)(), void (*inParent)(), void (*inChild)());

int __real_flock(int fd, int operation);
int __wrap_flock(int fd, int operation);

int __wrap_flock(int fd, int operation) {
    if (std::exchange(t_isHeldBeforeItsLock, false)) {
        g_isInside = true;
        vqtest::waitUntil([] { return g_mayLeave.load(); });
    }
    return __real_flock(fd, operation);
}
int __wrap_atexit(void (*handler)()) {
    return g_hasRoomAtExit ? __real_atexit(handler) : -1;
}
int __wrap_pthread_atfork(void (*before)(), void (*inParent)(), void (*inChild)()) {
    return g_hasRoomAtFork ? __real_pthread_atfork(before, inParent, inChild) : ENOMEM;
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(SemaphoreHandlers, OneThatAThreadOwnsWhileTheProcessExitsGoesAllTheSame) {
    vqtest::ForkedChild program([&] {
        static auto* const semaphore = new SemaphoreOf(name);
        static auto* const file = new std::string(path);
        static std::thread* owning = nullptr;
        // Before the library's, so that it runs after that.
        std::atexit([] {
            g_mayLeave = true;
            owning->join();
            ::_exit(std::filesystem::exists(*file) ? 1 : 0);
        });
        owning = new std::thread([] {
            t_isHeldBeforeItsLock = true;
            semaphore->own();
        });
        vqtest::waitUntil([] { return g_isInside.load(); });
        std::exit(2);
        return 3;
    });
    EXPECT_EQ(program.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
}

// One that stayed behind would be woken by every sender; one that a child kept would never go.
TEST_F(SemaphoreHandlers, NobodyOwnsOneThatWouldNotGoWithItsOwner) {
    SemaphoreOf semaphore(name);
    const auto isRefused = [&] {
        return !semaphore.own() && semaphore.error() == ENOMEM && !semaphore.isOwner();
    };
    g_hasRoomAtExit = g_hasRoomAtFork = false;
    EXPECT_TRUE(isRefused());
    g_hasRoomAtExit = true;
    EXPECT_TRUE(isRefused());
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name)) << "nobody has a lock on it";
    g_hasRoomAtFork = true;
    EXPECT_TRUE(semaphore.own()) << "it is tried again";
    EXPECT_TRUE(semaphore.isOwner());
}
