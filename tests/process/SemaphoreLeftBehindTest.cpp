// Semaphores under the names of notifications whose processes have gone, or that are something else:
// which of them a notification removes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/ForkedChild.h"
#include "support/SemaphoreWatchers.h"

using namespace VQRegLib;
using testing::ElementsAre;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::Handler;
using vqtest::hasSemaphore;
using vqtest::leaveSemaphore;
using vqtest::openSession;
using vqtest::semaphoreFile;
using vqtest::semaphoreFiles;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

class SemaphoreLeftBehind : public vqtest::SemaphoreWatchers {};

int countOf(const std::string& path) {
    sem_t semaphore{};
    std::ifstream in(path, std::ios::binary);
    in.read(reinterpret_cast<char*>(&semaphore), sizeof semaphore);
    int count = -1;
    ::sem_getvalue(&semaphore, &count);
    return count;
}

}  // namespace

TEST_F(SemaphoreLeftBehind, OfAKilledProcessIsSweptByTheNextNotification) {
    const auto living = watchingAgent();
    const auto killed = watchingAgent();
    killed->kill(SIGKILL);
    killed->waitExit();
    EXPECT_TRUE(hasSemaphore(killed->pid()));
    expectReached(*living);
    expectSweptUntil({semaphoreFile(living->pid())});
}

TEST_F(SemaphoreLeftBehind, ThousandsLeftBehindAreSweptAtOnce) {
    const auto living = watchingAgent();
    for (int i = 0; i < 10000; ++i) {
        leaveSemaphore(semaphoreFile(10'000'000 + i));
    }
    expectReached(*living);
    expectSweptUntil({semaphoreFile(living->pid())});
}

// A program that waits for notifications without the library knows of no owners.
TEST_F(SemaphoreLeftBehind, OfAnotherKindOfProgramIsReleasedAndStays) {
    ForkedChild living([] { return ::pause(); });
    const std::string unnumbered =
        std::string("/dev/shm/sem.") + vqtest::kSemaphorePrefix + "monitor";
    const std::vector<std::string> strangers = {semaphoreFile(living.pid()), unnumbered};
    for (const std::string& path : strangers) {
        const std::string name = "/" + path.substr(path.find("sem.") + 4);
        ASSERT_NE(::sem_open(name.c_str(), O_CREAT, 0666, 0), SEM_FAILED);
    }
    const std::string gone = semaphoreFile(10'000'000);
    leaveSemaphore(gone);  // younger than the others
    announceNothing(3);
    EXPECT_EQ(countOf(gone), 3) << "it is new, whosever it is";
    EXPECT_TRUE(waitUntil([&] {
        announceNothing(1);
        return !std::filesystem::exists(gone);
    }));
    for (const std::string& path : strangers) {
        ASSERT_TRUE(std::filesystem::exists(path)) << path;
        EXPECT_GT(countOf(path), 3) << path;
        std::filesystem::remove(path);
    }
}

TEST_F(SemaphoreLeftBehind, OfALivingProcessInAnotherPidNamespaceStays) {
    Common<std::atomic<int>> calls;
    Common<std::atomic<bool>> isReady;
    Common<std::atomic<pid_t>> innerPid;
    ForkedChild outer([&] {
        if (::unshare(CLONE_NEWPID) != 0) {
            return 1;
        }
        ForkedChild inner([&] {
            Handler handler([&] { ++*calls; });
            const auto own = openSession(file.path());
            own->SetRegistryChangeHandler(&handler);
            *isReady = ::getpid() == 1 && hasSemaphore(1) && waitWatchers(1);
            ::pause();
            return 0;
        });
        *innerPid = inner.pid();
        return inner.wait();
    });
    ASSERT_TRUE(waitUntil([&] { return isReady->load(); }));
    EXPECT_THAT(semaphoreFiles(), ElementsAre(semaphoreFile(1)));
    announceChange();
    EXPECT_TRUE(waitUntil([&] { return *calls == 1; }));
    announceChange();
    EXPECT_TRUE(waitUntil([&] { return *calls == 2; }));
    EXPECT_TRUE(hasSemaphore(1));
    ASSERT_GT(*innerPid, 0);
    ::kill(*innerPid, SIGKILL);
    outer.wait();
    EXPECT_TRUE(hasSemaphore(1));
    announceNothing(1);
    EXPECT_TRUE(hasSemaphore(1)) << "a process of that number is in sight";
    std::filesystem::remove(semaphoreFile(1));
}

TEST_F(SemaphoreLeftBehind, IsNeitherRemovedNorKeptByAForkedChild) {
    Common<std::atomic<int>> calls;
    Common<std::atomic<int>> step;
    Common<std::atomic<pid_t>> grandchild;
    ForkedChild owner([&] {
        Handler handler([&] { ++*calls; });
        const auto own = openSession(file.path());
        own->SetRegistryChangeHandler(&handler);
        if (!waitWatchers(1) || ForkedChild([] {
                                    std::exit(5);
                                    return 0;
                                }).wait() != 5) {
            return 1;
        }
        ForkedChild living([] { return ::pause(); });
        *grandchild = living.pid();
        *step = 1;
        ::pause();
        return 0;
    });
    ASSERT_TRUE(waitUntil([&] { return *step == 1; }));
    EXPECT_TRUE(hasSemaphore(owner.pid())) << "a child that ended took it away";
    announceChange();
    EXPECT_TRUE(waitUntil([&] { return *calls == 1; }));
    owner.kill();
    ASSERT_GT(*grandchild, 0);
    ASSERT_EQ(::kill(*grandchild, 0), 0);
    // The child may not have come to run yet.
    EXPECT_TRUE(waitUntil([&] {
        announceNothing(1);
        return !hasSemaphore(owner.pid());
    })) << "a child that lives keeps it";
    ::kill(*grandchild, SIGKILL);
}

TEST_F(SemaphoreLeftBehind, GarbageUnderSuchNamesDisturbsNobody) {
    const auto living = watchingAgent();
    const auto name = [](const char* ending) {
        return std::string("/dev/shm/sem.") + vqtest::kSemaphorePrefix + ending;
    };
    std::filesystem::create_directory(name("directory"));
    std::filesystem::create_symlink("/etc/passwd", name("link"));
    ASSERT_EQ(::mkfifo(name("pipe").c_str(), 0666), 0);
    std::ofstream(name("")) << "";
    std::ofstream(name("owned")) << "too short";
    const int owned = ::open(name("owned").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(owned, LOCK_SH), 0);
    expectReached(*living);
    expectReached(*living);
    EXPECT_TRUE(std::filesystem::exists(semaphoreFile(living->pid())));
    EXPECT_EQ(vqtest::readFile(name("owned")), "too short");
    EXPECT_TRUE(std::filesystem::exists("/etc/passwd"));
    ::close(owned);
}
