// The named semaphore, its users and its owners.
#include "portable/Semaphore.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "support/ForkedChild.h"
#include "support/SemaphoreFixture.h"
#include "support/Threads.h"
#include "support/Wait.h"

namespace fs = std::filesystem;

using VQRegLib::CPSemaphore;
using VQRegLib::CTerminateWait;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::SemaphoreOf;
using vqtest::waitUntil;

namespace {

class Semaphore : public vqtest::SemaphoreTest {};

}  // namespace

TEST_F(Semaphore, IsMadeByTheFirstAndOpenedByTheOthers) {
    ::umask(077);
    SemaphoreOf first(name);
    SemaphoreOf second(name);
    EXPECT_TRUE(first.isOpen());
    EXPECT_TRUE(second.isOpen());
    EXPECT_TRUE(first.isCreator());
    EXPECT_FALSE(second.isCreator());
    EXPECT_EQ(fs::file_size(path), sizeof(sem_t));
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0666u);
    second.release();
    EXPECT_TRUE(first.wait(0, nullptr));
    EXPECT_FALSE(second.wait(0, nullptr));
}

TEST_F(Semaphore, CountsReleases) {
    SemaphoreOf semaphore(name);
    for (int i = 0; i < 3; ++i) {
        semaphore.release();
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(semaphore.wait(CPSemaphore::kInfinite, nullptr));
    }
    EXPECT_FALSE(semaphore.wait(5, nullptr));
}

TEST_F(Semaphore, OnlyItsMakerSetsTheInitialCount) {
    SemaphoreOf first(name, 2);
    SemaphoreOf second(name, 5);
    EXPECT_TRUE(second.wait(0, nullptr));
    EXPECT_TRUE(second.wait(0, nullptr));
    EXPECT_FALSE(second.wait(0, nullptr));
}

TEST_F(Semaphore, OutlivesTheObjectsOfAProcess) {
    { SemaphoreOf(name).release(); }
    ASSERT_TRUE(fs::exists(path));
    SemaphoreOf again(name);
    EXPECT_FALSE(again.isCreator());
    EXPECT_TRUE(again.wait(0, nullptr));
}

TEST_F(Semaphore, IsOneObjectForAllProcesses) {
    SemaphoreOf semaphore(name);
    ForkedChild child([&] {
        SemaphoreOf other(name);
        other.release();
        return other.isCreator() ? 1 : 0;
    });
    EXPECT_TRUE(semaphore.wait(CPSemaphore::kInfinite, nullptr));
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(Semaphore, IsWhatTheSystemsOwnFunctionsOpen) {
    SemaphoreOf semaphore(name);
    sem_t* const system = ::sem_open(("/" + name).c_str(), 0);
    ASSERT_NE(system, SEM_FAILED);
    ::sem_post(system);
    EXPECT_TRUE(semaphore.wait(0, nullptr));
    semaphore.release();
    EXPECT_EQ(::sem_trywait(system), 0);
    ::sem_close(system);
}

TEST_F(Semaphore, WhoWaitsIsWokenByTheSystemsOwnFunction) {
    SemaphoreOf semaphore(name);
    sem_t* const system = ::sem_open(("/" + name).c_str(), 0);
    ASSERT_NE(system, SEM_FAILED);
    vqtest::CallElsewhere waiting(
        [&] { EXPECT_TRUE(semaphore.wait(CPSemaphore::kInfinite, nullptr)); });
    EXPECT_TRUE(waiting.waits());
    ::sem_post(system);
    EXPECT_TRUE(waiting.returns());
    semaphore.release();  // it ends at the latest now
    ::sem_close(system);
}

TEST_F(Semaphore, OpensOneThatTheSystemMade) {
    sem_t* const system = ::sem_open(("/" + name).c_str(), O_CREAT, 0666, 1);
    ASSERT_NE(system, SEM_FAILED);
    SemaphoreOf semaphore(name);
    EXPECT_FALSE(semaphore.isCreator());
    EXPECT_TRUE(semaphore.wait(0, nullptr));
    ::sem_close(system);
}

TEST_F(Semaphore, AWaitCanBeTerminated) {
    SemaphoreOf semaphore(name);
    CTerminateWait terminate;
    std::atomic<bool> isOver{false};
    std::thread waiting([&] {
        EXPECT_FALSE(semaphore.wait(CPSemaphore::kInfinite, &terminate));
        isOver = true;
    });
    terminate.terminate();
    EXPECT_TRUE(waitUntil([&] { return isOver.load(); }));
    waiting.join();
}

TEST_F(Semaphore, AWaitGoesOnAfterASignal) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);  // without SA_RESTART
    SemaphoreOf semaphore(name);
    std::atomic<bool> isOver{false};
    std::thread waiting([&] {
        EXPECT_TRUE(semaphore.wait(CPSemaphore::kInfinite, nullptr));
        isOver = true;
    });
    for (int i = 0; i < 20; ++i) {
        ::pthread_kill(waiting.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    EXPECT_FALSE(waitUntil([&] { return isOver.load(); }, std::chrono::milliseconds(20)));
    semaphore.release();
    waiting.join();
}

TEST_F(Semaphore, AnotherKindOfFileIsRefused) {
    fs::create_directory(path);
    SemaphoreOf semaphore(name);
    EXPECT_FALSE(semaphore.isOpen());
    EXPECT_FALSE(semaphore.own());
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(Semaphore, AFileThatIsTooShortIsReplacedByItsOwner) {
    std::ofstream(path) << "too short";
    SemaphoreOf semaphore(name);
    EXPECT_FALSE(semaphore.isOpen());
    EXPECT_EQ(semaphore.error(), EINVAL);
    EXPECT_TRUE(semaphore.own());
    EXPECT_TRUE(semaphore.isOwner());
    SemaphoreOf(name).release();
    EXPECT_TRUE(semaphore.wait(0, nullptr));
}

// The attack: whoever touches a mapping whose file was cut short dies.
TEST_F(Semaphore, CuttingItsFileShortKillsNobody) {
    if (sizeof(void*) < 8) {
        GTEST_SKIP() << "guaranteed only where pointers have 64 bits";
    }
    SemaphoreOf semaphore(name);
    ASSERT_TRUE(semaphore.own());
    fs::resize_file(path, 0);
    semaphore.release();
    EXPECT_FALSE(semaphore.wait(CPSemaphore::kInfinite, nullptr)) << "and it does not hang";
    EXPECT_FALSE(semaphore.isOwner());
    SemaphoreOf again(name);
    EXPECT_TRUE(again.own());
    SemaphoreOf(name).release();
    EXPECT_TRUE(again.wait(0, nullptr));
}

TEST_F(Semaphore, CuttingItsFileShortUnderAWaitKillsNobody) {
    if (sizeof(void*) < 8) {
        GTEST_SKIP() << "guaranteed only where pointers have 64 bits";
    }
    SemaphoreOf semaphore(name);
    std::atomic<bool> isOver{false};
    std::thread waiting([&] {
        while (!isOver) {
            semaphore.wait(1, nullptr);
        }
    });
    for (int i = 0; i < 200; ++i) {
        fs::resize_file(path, i % 2 == 0 ? 0 : sizeof(sem_t));
        semaphore.release();
    }
    isOver = true;
    waiting.join();
}
