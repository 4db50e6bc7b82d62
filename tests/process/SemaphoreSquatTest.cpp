// Somebody who holds the lock of a semaphore that a process is about to own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/file.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using testing::Contains;
using testing::HasSubstr;
using vqtest::Agent;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

constexpr unsigned kSquatter = 65534;

// A file in the semaphore's place, locked, and another user's where files can be given away.
class Squatted {
public:
    explicit Squatted(pid_t pid) : m_path(vqtest::semaphoreFile(pid)) {
        std::ofstream(m_path) << std::string(sizeof(sem_t), '\0');
        m_fd = ::open(m_path.c_str(), O_RDWR | O_CLOEXEC);
        ::flock(m_fd, LOCK_EX);
        m_user = ::fchown(m_fd, kSquatter, kSquatter) == 0 ? kSquatter : ::geteuid();
    }
    ~Squatted() {
        ::close(m_fd);
        ::unlink(m_path.c_str());
    }
    Squatted(const Squatted&) = delete;
    Squatted& operator=(const Squatted&) = delete;

    unsigned user() const { return m_user; }

private:
    std::string m_path;
    int m_fd = -1;
    unsigned m_user = 0;
};

}  // namespace

TEST(SemaphoreSquat, ARegistrationGoesOnAndTheUserIsNamed) {
    const TraceLog log(1);
    const TempStore store;
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    {
        const Squatted squatted(agent.pid());
        agent.watch();
        EXPECT_EQ(agent.set(".", "A", 1u), REGLIB_OK);
        EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace),
                    Contains(HasSubstr("semaphore failed, errno 11, the file is of user " +
                                       std::to_string(squatted.user()) + ": \"" +
                                       vqtest::semaphoreName(agent.pid()) + "\"")));
    }
    EXPECT_EQ(agent.close(), REGLIB_OK);
}
