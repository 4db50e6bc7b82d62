// The semaphores on which the processes hear of changes: their names, and when they come and go.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ForkedChild.h"
#include "support/SemaphoreWatchers.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::IsEmpty;
using vqtest::Agent;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::Handler;
using vqtest::hasSemaphore;
using vqtest::isOwned;
using vqtest::leaveSemaphore;
using vqtest::openSession;
using vqtest::semaphoreFile;
using vqtest::semaphoreFiles;
using vqtest::semaphoreName;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

class NotificationSemaphore : public vqtest::SemaphoreWatchers {};

// A daemon's way: it keeps the standard streams.
bool closeAllDescriptors() {
    return ::close_range(3, ~0u, 0) == 0;
}

// The releases that nobody has taken yet; -1 without such a semaphore.
int countOf(const std::string& name) {
    sem_t* const semaphore = ::sem_open(("/" + name).c_str(), 0);
    int count = -1;
    if (semaphore != SEM_FAILED) {
        ::sem_getvalue(semaphore, &count);
        ::sem_close(semaphore);
    }
    return count;
}

}  // namespace

TEST_F(NotificationSemaphore, HasTheFixedNameAndIsOpenToAll) {
    ::umask(077);
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(file.path()), REGLIB_OK);
    EXPECT_THAT(semaphoreFiles(), IsEmpty());
    agent.watch();
    const std::string name = "sem.REG-CHANGENOTIF-SEM-BF96420F-BEA8-4a58-AA2E-FA2A7AE7F5A5-";
    std::string digits = std::to_string(agent.pid());
    while (digits.size() < 4) {
        digits.insert(0, "0");
    }
    EXPECT_THAT(semaphoreFiles(), ElementsAre("/dev/shm/" + name + digits));
    struct stat status {};
    ASSERT_EQ(::stat(semaphoreFile(agent.pid()).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0666));
    EXPECT_EQ(static_cast<std::size_t>(status.st_size), sizeof(sem_t));
}

TEST_F(NotificationSemaphore, IsTheSystemsOwnKindOfSemaphore) {
    const auto agent = watchingAgent();
    sem_t* const semaphore = ::sem_open(("/" + semaphoreName(agent->pid())).c_str(), 0);
    ASSERT_NE(semaphore, SEM_FAILED);
    vqtest::moveFileTime(file.path());
    EXPECT_EQ(::sem_post(semaphore), 0);
    EXPECT_TRUE(waitUntil([&] { return agent->changes() == 1; }));
    int count = -1;
    EXPECT_TRUE(waitUntil([&] { return ::sem_getvalue(semaphore, &count) == 0 && count == 0; }));
    ::sem_close(semaphore);
}

TEST_F(NotificationSemaphore, SendersMakeNone) {
    announceNothing();
    EXPECT_THAT(semaphoreFiles(), IsEmpty());
}

TEST_F(NotificationSemaphore, OutlivesTheLastHandlerAndTheLastStore) {
    const auto agent = watchingAgent();
    agent->unwatch();
    EXPECT_TRUE(hasSemaphore(agent->pid()));
    ASSERT_EQ(agent->close(), REGLIB_OK);
    EXPECT_TRUE(hasSemaphore(agent->pid()));
    // The system shows a thread that has ended for a moment longer.
    EXPECT_TRUE(waitUntil([&] { return vqtest::countThreads("FileWatch", agent->pid()) == 0; }));
    EXPECT_EQ(vqtest::countThreads("RegChgNotif", agent->pid()), 1);
    // It is used again.
    ASSERT_EQ(agent->open(file.path()), REGLIB_OK);
    agent->watch();
    ASSERT_TRUE(waitWatchers(1, agent->pid()));
    expectReached(*agent);
}

TEST_F(NotificationSemaphore, GoesWithANormalEnd) {
    const auto agent = watchingAgent();
    ASSERT_TRUE(hasSemaphore(agent->pid()));
    ASSERT_EQ(agent->exit(), REGLIB_OK);
    EXPECT_EQ(agent->waitExit(), (vqtest::ExitStatus{true, false, 0}));
    EXPECT_THAT(semaphoreFiles(), IsEmpty());
}

TEST_F(NotificationSemaphore, GoesWithAnExitWhileThreadsAreAtWork) {
    for (const bool fromAnotherThread : {false, true}) {
        Common<std::atomic<bool>> had;
        ForkedChild child([&] {
            auto* const own = openSession(file.path()).release();
            auto* const handler = new Handler;
            own->SetRegistryChangeHandler(handler);
            *had = hasSemaphore();
            std::thread sending([&] {
                for (int i = 0; i < 10; ++i) {
                    own->SendRegistryChangeNotification();
                }
                if (fromAnotherThread) {
                    std::exit(3);
                }
            });
            if (fromAnotherThread) {
                sending.join();
            }
            sending.detach();
            std::exit(3);
            return 0;
        });
        EXPECT_EQ(child.wait(), 3);
        EXPECT_TRUE(*had);
        EXPECT_THAT(semaphoreFiles(), IsEmpty());
    }
}

TEST_F(NotificationSemaphore, OfAProcessThatClosedItsDescriptorsIsReleasedAndOwnedAgain) {
    Common<std::atomic<int>> calls;
    Common<std::atomic<bool>> isReady;
    ForkedChild daemon([&] {
        Handler handler([&] { ++*calls; });
        const auto own = openSession(file.path());
        own->SetRegistryChangeHandler(&handler);
        *isReady = waitWatchers(1) && closeAllDescriptors();
        ::pause();
        return 0;
    });
    ASSERT_TRUE(waitUntil([&] { return isReady->load(); }));
    for (int i = 1; i <= 3; ++i) {
        announceChange();
        EXPECT_TRUE(waitUntil([&] { return *calls == i; })) << i;
    }
    EXPECT_TRUE(waitUntil([&] { return isOwned(semaphoreFile(daemon.pid())); }));
    daemon.kill();
    expectSweptUntil({});
}

TEST_F(NotificationSemaphore, IsOwnedAgainBeforeARegistrationReturns) {
    ForkedChild daemon([&] {
        Handler handler;
        const auto own = openSession(file.path());
        own->SetRegistryChangeHandler(&handler);
        const bool isWatching = waitWatchers(1);
        const bool isClosed = closeAllDescriptors();
        std::filesystem::remove(semaphoreFile());
        Handler another;
        own->SetRegistryChangeHandler(&another);
        const bool isBack = hasSemaphore() && isOwned(semaphoreFile());
        vqtest::moveFileTime(file.path());
        own->SendRegistryChangeNotification();
        const bool isReached = handler.waitCalls(1) && another.waitCalls(1);
        const bool isWaitedFor = waitUntil([] { return countOf(semaphoreName()) == 0; });
        own->ClrRegistryChangeHandler(&handler);
        own->ClrRegistryChangeHandler(&another);
        return isWatching && isClosed && isBack && isReached && isWaitedFor ? 0 : 1;
    });
    EXPECT_EQ(daemon.wait(), 0);
    expectSweptUntil({});
}

TEST_F(NotificationSemaphore, ComesBackByItselfWhenItsNameWasRemoved) {
    const auto agent = watchingAgent();
    std::filesystem::remove(semaphoreFile(agent->pid()));
    EXPECT_TRUE(waitUntil(
        [&] { return hasSemaphore(agent->pid()) && isOwned(semaphoreFile(agent->pid())); }));
    expectReached(*agent);
    ASSERT_EQ(agent->exit(), REGLIB_OK);
    agent->waitExit();
    EXPECT_THAT(semaphoreFiles(), IsEmpty());
}

TEST_F(NotificationSemaphore, LeftBehindUnderTheOwnNumberIsTakenOver) {
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(file.path()), REGLIB_OK);
    leaveSemaphore(semaphoreFile(agent.pid()), 5);
    agent.watch();
    ASSERT_TRUE(waitWatchers(1, agent.pid()));
    expectReached(agent);
    EXPECT_THAT(semaphoreFiles(), ElementsAre(semaphoreFile(agent.pid())));
    ASSERT_EQ(agent.exit(), REGLIB_OK);
    agent.waitExit();
    EXPECT_THAT(semaphoreFiles(), IsEmpty());
}

TEST_F(NotificationSemaphore, AForeignFileUnderTheOwnNameLeavesTheHandlerUncalled) {
    std::filesystem::create_directory(semaphoreFile());
    Handler handler;
    watch(handler);
    EXPECT_TRUE(waitUntil([] { return vqtest::countThreads("RegChgNotif") == 0; }));
    announceChange();
    std::filesystem::remove(semaphoreFile());
    Handler other;
    other.watch(session);  // tries again
    announceChange();
    EXPECT_TRUE(other.waitCalls(1));
    EXPECT_TRUE(handler.waitCalls(1));
}

// A sender remembers whom it has told, for as long as nobody comes or goes.
TEST_F(NotificationSemaphore, OfAProcessThatComesBetweenTwoNotificationsIsReleased) {
    const auto first = watchingAgent();
    const std::string directory = "/dev/shm";
    ASSERT_TRUE(waitUntil([&] {
        struct stat status {};
        timespec now{};
        return ::stat(directory.c_str(), &status) == 0 &&
               ::clock_gettime(CLOCK_REALTIME, &now) == 0 && now.tv_sec - status.st_ctim.tv_sec > 1;
    })) << "it does not grow old";
    announceNothing(2);
    const auto second = watchingAgent();
    announceChange();
    for (Agent* const agent : {first.get(), second.get()}) {
        EXPECT_TRUE(waitUntil([&] { return agent->changes() == 1; })) << agent->pid();
    }
    second->exit();
    second->waitExit();
    const auto third = watchingAgent();
    announceChange();
    EXPECT_TRUE(waitUntil([&] { return third->changes() == 1 && first->changes() == 2; }));
}

TEST_F(NotificationSemaphore, ComesIntoBeingWhileOthersSend) {
    std::atomic<bool> isOver{false};
    std::thread sending([&] {
        while (!isOver) {
            session->SendRegistryChangeNotification();
        }
    });
    for (int round = 0; round < 20; ++round) {
        Agent agent(VQREG_AGENT_PATH);
        if (agent.open(file.path()) != REGLIB_OK) {
            ADD_FAILURE();
            break;
        }
        agent.watch();
        EXPECT_TRUE(waitWatchers(1, agent.pid()));
        vqtest::moveFileTime(file.path());
        EXPECT_TRUE(waitUntil([&] { return agent.changes() == 1; })) << round;
        if (round % 2 == 0) {
            agent.exit();
            agent.waitExit();
        }
    }
    isOver = true;
    sending.join();
    expectSweptUntil({});
}
