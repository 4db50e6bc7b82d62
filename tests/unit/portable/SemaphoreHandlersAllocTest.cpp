// No memory for what a semaphore needs to go with its owner. In an executable of its own, because it replaces
// what registers that.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>

#include "portable/Semaphore.h"
#include "support/SemaphoreFixture.h"

using VQRegLib::CPSemaphore;
using vqtest::SemaphoreOf;

namespace {

bool g_hasRoomAtExit = true;
bool g_hasRoomAtFork = true;

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

int __wrap_atexit(void (*handler)()) {
    return g_hasRoomAtExit ? __real_atexit(handler) : -1;
}
int __wrap_pthread_atfork(void (*before)(), void (*inParent)(), void (*inChild)()) {
    return g_hasRoomAtFork ? __real_pthread_atfork(before, inParent, inChild) : ENOMEM;
}
}
// NOLINTEND(bugprone-reserved-identifier)

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
