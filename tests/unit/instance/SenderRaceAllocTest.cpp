// What happens between a sender's look for semaphores and its use of what it has found. In an executable
// of its own, because it replaces the end of that look, closedir.
#include <dirent.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "RegLib/instance/Notifier.h"
#include "RegLib/text/NotificationName.h"
#include "portable/Semaphore.h"

namespace fs = std::filesystem;
using namespace VQRegLib;

namespace {

std::function<void()> g_atEndOfLook;  // called once

class SenderRace : public testing::Test {
protected:
    ~SenderRace() override { fs::remove(m_path); }

    const std::string m_name = notificationSemaphoreName(::getpid());
    const std::string m_path = "/dev/shm/sem." + m_name;
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __real_closedir(DIR* directory);
extern "C" int __wrap_closedir(DIR* directory);

extern "C" int __wrap_closedir(DIR* directory) {
    const int result = __real_closedir(directory);
    if (const auto atEnd = std::exchange(g_atEndOfLook, nullptr)) {
        atEnd();
    }
    return result;
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(SenderRace, ASemaphoreThatGoesMeanwhileIsNotMadeAgain) {
    const CPSemaphore semaphore(1, 0, 0x7fffffff, m_name, 1);
    g_atEndOfLook = [&] { EXPECT_TRUE(fs::remove(m_path)); };
    releaseNotificationSemaphores();
    EXPECT_EQ(g_atEndOfLook, nullptr);
    EXPECT_FALSE(fs::exists(m_path));
}

TEST_F(SenderRace, AnotherThreadDoesNotWaitToSend) {
    CPSemaphore semaphore(1, 0, 0x7fffffff, m_name, 1);
    int released = 0;
    g_atEndOfLook = [&] {
        std::thread(releaseNotificationSemaphores).join();
        released = semaphore.wait(0, nullptr) ? 1 : 0;
    };
    releaseNotificationSemaphores();
    EXPECT_EQ(released, 1) << "the other one's";
    EXPECT_TRUE(semaphore.wait(0, nullptr));
    EXPECT_FALSE(semaphore.wait(0, nullptr));
}
