// Whoever has made a shared object may ask the kernel for a lease of it. Who opens it then waits for up
// to 45 seconds, unless it is opened without waiting.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "portable/Mutex.h"
#include "portable/Semaphore.h"
#include "portable/SharedMemory.h"
#include "support/Lease.h"
#include "support/SemaphoreFixture.h"
#include "support/TempStore.h"

using VQRegLib::CPMutex;
using VQRegLib::CPSemaphore;
using VQRegLib::CPSharedMemory;
using vqtest::Lease;

namespace {

class LeaseOf : public vqtest::SemaphoreTest {
protected:
    // Far below what the kernel gives the holder, far above what an opening takes.
    ~LeaseOf() override {
        EXPECT_LT(std::chrono::steady_clock::now() - m_begin, std::chrono::seconds(20));
    }

    const vqtest::TempStore m_store;
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

}  // namespace

TEST_F(LeaseOf, ASemaphoreHoldsUpNobody) {
    { const vqtest::SemaphoreOf made(name); }
    Lease lease(path);
    SKIP_WITHOUT_LEASE(lease);
    const vqtest::SemaphoreOf semaphore(name);
    EXPECT_FALSE(semaphore.isOpen());
    EXPECT_EQ(semaphore.error(), EWOULDBLOCK);
}

TEST_F(LeaseOf, ASemaphoreHoldsUpNoSender) {
    { const vqtest::SemaphoreOf made(name); }
    Lease lease(path);
    SKIP_WITHOUT_LEASE(lease);
    EXPECT_FALSE(CPSemaphore::removeIfOwnerless(name));
    CPSemaphore::waitUntilFree(name);
}

TEST_F(LeaseOf, ALockHoldsUpNobody) {
    { const CPMutex made(1, 0, m_store.path(), 1, 1); }
    Lease lease(VQRegLib::objectPath("CPLock", m_store.path()));
    SKIP_WITHOUT_LEASE(lease);
    const CPMutex mutex(1, 0, m_store.path(), 1, 1);
    EXPECT_EQ(mutex.error(), EWOULDBLOCK);
}

TEST_F(LeaseOf, ABlockHoldsUpNobody) {
    { const CPSharedMemory made(m_store.path(), 8); }
    Lease lease(VQRegLib::objectPath("CPBlock", m_store.path()));
    SKIP_WITHOUT_LEASE(lease);
    const CPSharedMemory block(m_store.path(), 8);
    EXPECT_EQ(block.error(), EWOULDBLOCK);
}
