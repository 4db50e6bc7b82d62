// Whoever has made a shared object may ask the kernel for a lease of it. Who opens it then waits for up
// to 45 seconds, unless it is opened without waiting.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>

#include "portable/Mutex.h"
#include "portable/Semaphore.h"
#include "portable/SharedMemory.h"
#include "support/ForkedChild.h"
#include "support/SemaphoreFixture.h"
#include "support/TempStore.h"
#include "support/Wait.h"

using VQRegLib::CPMutex;
using VQRegLib::CPSemaphore;
using VQRegLib::CPSharedMemory;
using vqtest::Common;
using vqtest::ForkedChild;

namespace {

// Has a lease of a file, and does not let go of it when it is asked to.
class Lease {
public:
    explicit Lease(const std::string& path)
        : m_child([&] {
              std::signal(SIGIO, SIG_IGN);
              const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
              *m_state = fd >= 0 && ::fcntl(fd, F_SETLEASE, F_WRLCK) == 0 ? 1 : -1;
              while (true) {
                  ::pause();
              }
              return 0;
          }) {
        vqtest::waitUntil([&] { return *m_state != 0; });
    }
    bool isHeld() { return *m_state == 1; }

private:
    Common<int> m_state;
    ForkedChild m_child;
};

class LeaseOf : public vqtest::SemaphoreTest {
protected:
    // Far below what the kernel gives the holder, far above what an opening takes.
    ~LeaseOf() override {
        EXPECT_LT(std::chrono::steady_clock::now() - m_begin, std::chrono::seconds(20));
    }

    const vqtest::TempStore m_store;
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

#define SKIP_WITHOUT_LEASE(lease)                              \
    if (!(lease).isHeld()) {                                   \
        GTEST_SKIP() << "the system gives no leases of these"; \
    }

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
