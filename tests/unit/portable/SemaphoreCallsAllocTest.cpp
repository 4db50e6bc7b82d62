// The system refuses a call while a semaphore is opened or used: the error is told, nothing is left, and the
// next attempt succeeds. In an executable of its own, because it replaces calls of the system.
#include <gtest/gtest.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "portable/Semaphore.h"
#include "portable/SharedCount.h"
#include "support/FailingCalls.h"
#include "support/SemaphoreFixture.h"
#include "unit/portable/Refused.h"

using VQRegLib::CPSemaphore;
using VQRegLib::CSharedCount;
using vqtest::FailingCall;
using vqtest::Refused;
using vqtest::SemaphoreOf;

namespace {

class SemaphoreRefused : public testing::TestWithParam<Refused> {};
class SemaphoreCalls : public vqtest::SemaphoreTest {};

}  // namespace

TEST_P(SemaphoreRefused, TellsWhyAndLeavesNothingInTheWay) {
    SKIP_UNLESS_WRAPPED();
    const std::string name = "vqreg-test-refused-" + std::to_string(::getpid());
    {
        const FailingCall refused(GetParam().function, GetParam().error, GetParam().skip);
        const SemaphoreOf semaphore(name);
        EXPECT_FALSE(semaphore.isOpen());
        EXPECT_EQ(semaphore.error(), GetParam().error);
        EXPECT_GT(refused.count(), 0);
    }
    {
        const SemaphoreOf semaphore(name);
        EXPECT_TRUE(semaphore.isOpen());
        EXPECT_TRUE(semaphore.isCreator());
    }
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name));
}

INSTANTIATE_TEST_SUITE_P(Calls, SemaphoreRefused,
                         testing::Values(Refused{"open", EMFILE}, Refused{"open", ENFILE, 1},
                                         Refused{"posix_fallocate", ENOSPC}, Refused{"fstat", EIO},
                                         Refused{"mmap", ENOMEM}, Refused{"fchmod", EPERM},
                                         Refused{"linkat", EDQUOT}, Refused{"sem_init", ENOSYS}),
                         vqtest::nameOfRefused);

TEST_F(SemaphoreCalls, OneThatIsThereMayBeRefusedToo) {
    SKIP_UNLESS_WRAPPED();
    const SemaphoreOf first(name);
    for (const Refused& call :
         {Refused{"fstat", EIO}, Refused{"fstat", EIO, 1}, Refused{"mmap", ENOMEM}}) {
        const FailingCall refused(call.function, call.error, call.skip);
        const SemaphoreOf second(name);
        EXPECT_FALSE(second.isOpen());
        EXPECT_EQ(second.error(), call.error);
    }
}

TEST_F(SemaphoreCalls, ANameThatAlwaysGoesBeforeItIsOpenedIsGivenUp) {
    SKIP_UNLESS_WRAPPED();
    const FailingCall gone("open", ENOENT, 0, 1);
    const FailingCall taken("linkat", EEXIST, 0, 1);
    const SemaphoreOf semaphore(name);  // missing, then made by another one, then gone again
    EXPECT_TRUE(semaphore.isOpen());
    EXPECT_TRUE(semaphore.isCreator());
    const FailingCall alwaysGone("open", ENOENT);
    const SemaphoreOf other(name);
    EXPECT_FALSE(other.isOpen());
    EXPECT_EQ(other.error(), ENOENT);
}

TEST_F(SemaphoreCalls, ANameThatComesAndGoesIsTriedAHundredTimes) {
    SKIP_UNLESS_WRAPPED();
    const FailingCall taken("linkat", EEXIST);  // by another process, which removes it again
    const SemaphoreOf semaphore(name);
    EXPECT_EQ(semaphore.error(), EEXIST);
    EXPECT_EQ(taken.count(), 100);
}

TEST_F(SemaphoreCalls, AnOwnerNeedsToSeeItsFile) {
    SKIP_UNLESS_WRAPPED();
    SemaphoreOf semaphore(name);
    for (const Refused& call : {Refused{"flock", ENOLCK}, Refused{"open", EMFILE}}) {
        const FailingCall refused(call.function, call.error);
        EXPECT_FALSE(semaphore.own(2));
        EXPECT_EQ(semaphore.error(), call.error);
        EXPECT_FALSE(semaphore.isOwner());
    }
    SemaphoreOf again(name);
    EXPECT_TRUE(again.own());
    EXPECT_TRUE(again.isOwner());
    const FailingCall blind("fstat", EIO);
    EXPECT_FALSE(again.isOwner());
}

TEST_F(SemaphoreCalls, AnOwnerWhoseFileCannotBeLookedAtTriesAgain) {
    SKIP_UNLESS_WRAPPED();
    SemaphoreOf semaphore(name);
    const FailingCall blind("fstat", EIO, 0, 1);
    EXPECT_TRUE(semaphore.own(2));
    EXPECT_EQ(blind.count(), 1);
}

TEST_F(SemaphoreCalls, AnOwnerWhoseFileLosesItsNameMeanwhileTriesAgain) {
    SKIP_UNLESS_WRAPPED();
    SemaphoreOf semaphore(name);
    {
        const FailingCall nameless("fstat", 0, 0, 1);  // says that it has no links
        EXPECT_FALSE(semaphore.own(1));
        EXPECT_EQ(semaphore.error(), ESTALE);
    }
    SemaphoreOf again(name);
    const FailingCall nameless("fstat", 0, 0, 1);
    EXPECT_TRUE(again.own(2));
    EXPECT_EQ(nameless.count(), 1);
}

TEST_F(SemaphoreCalls, WhatCannotBeLookedAtKeepsItsName) {
    SKIP_UNLESS_WRAPPED();
    const SemaphoreOf semaphore(name);
    {
        const FailingCall blind("fstat", EIO);
        (void)CPSemaphore::removeIfOwnerless(name);
        EXPECT_EQ(blind.count(), 1);
    }
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SemaphoreCalls, AnOwnerTakesTheFileThatTheNameMeans) {
    const SemaphoreOf replaced(name);
    SemaphoreOf semaphore(name);
    std::filesystem::rename(path, path + ".old");
    {
        const SemaphoreOf other(name);  // what the name means now
    }
    EXPECT_TRUE(semaphore.own(2));
    EXPECT_TRUE(semaphore.isOwner());
    EXPECT_FALSE(std::filesystem::equivalent(path, path + ".old"));
    std::filesystem::remove(path + ".old");
}

TEST_F(SemaphoreCalls, OneWhoseAgeCannotBeToldStays) {
    SKIP_UNLESS_WRAPPED();
    const std::string ofNobody = name + "-0";
    const SemaphoreOf semaphore(ofNobody);
    const std::string file = "/dev/shm/sem." + ofNobody;
    for (const char* function : {"statx", "clock_gettime", "fstat", "open"}) {
        const FailingCall blind(function, ENOSYS);
        EXPECT_FALSE(CPSemaphore::removeIfAbandoned(ofNobody));
        EXPECT_GT(blind.count(), 0) << function;
    }
    EXPECT_TRUE(std::filesystem::remove(file));
}

TEST_F(SemaphoreCalls, OneOfAProcessOfAnotherUserStays) {
    SKIP_UNLESS_WRAPPED();
    const std::string numbered = name + "-999999999";
    const SemaphoreOf semaphore(numbered);
    {
        const FailingCall another("kill", EPERM);
        const FailingCall old("statx", 0);
        EXPECT_FALSE(CPSemaphore::removeIfAbandoned(numbered));
        EXPECT_EQ(another.count(), 1);
    }
    EXPECT_TRUE(std::filesystem::remove(path + "-999999999"));
}

TEST_F(SemaphoreCalls, WhereNoTimeOfBirthIsKnownTheLastChangeTellsItsAge) {
    SKIP_UNLESS_WRAPPED();
    const std::string ofNobody = name + "-0";
    const SemaphoreOf semaphore(ofNobody);
    EXPECT_FALSE(CPSemaphore::removeIfAbandoned(ofNobody)) << "just made";
    const FailingCall old("statx", 0);  // no birth, and last changed in 1970
    EXPECT_TRUE(CPSemaphore::removeIfAbandoned(ofNobody));
    EXPECT_FALSE(std::filesystem::exists(path + "-0"));
}

TEST_F(SemaphoreCalls, WaitingForItToBeFreeEndsWhenTheSystemHasNoLocks) {
    SKIP_UNLESS_WRAPPED();
    const SemaphoreOf semaphore(name);
    const FailingCall refused("flock", ENOLCK);
    CPSemaphore::waitUntilFree(name);
    EXPECT_EQ(refused.count(), 1);
    CPSemaphore::waitUntilFree(name + "-missing");
    EXPECT_EQ(refused.count(), 1);
}

TEST_F(SemaphoreCalls, WaitingForItToBeFreeLooksAgainWhileItIsLocked) {
    SKIP_UNLESS_WRAPPED();
    const SemaphoreOf semaphore(name);
    const FailingCall locked("flock", EWOULDBLOCK, 0, 3);
    CPSemaphore::waitUntilFree(name);
    EXPECT_EQ(locked.count(), 3);
}

TEST_F(SemaphoreCalls, WaitingForItToBeFreeEndsAfterAHundredLooks) {
    SKIP_UNLESS_WRAPPED();
    const SemaphoreOf semaphore(name);
    const FailingCall locked("flock", EWOULDBLOCK);
    const FailingCall naps("nanosleep", 0);
    CPSemaphore::waitUntilFree(name);
    EXPECT_EQ(locked.count(), 100);
}

TEST_F(SemaphoreCalls, TellsNoUserOfAFileThatItCannotSee) {
    SKIP_UNLESS_WRAPPED();
    const SemaphoreOf semaphore(name);
    EXPECT_EQ(CPSemaphore::userOf(name), static_cast<long>(::geteuid()));
    const FailingCall blind("lstat", EIO);
    EXPECT_EQ(CPSemaphore::userOf(name), -1);
}

TEST(CountCalls, AWaitThatEndsForNothingTakesNothingAndGoesOn) {
    SKIP_UNLESS_WRAPPED();
    sem_t semaphore;
    ASSERT_EQ(::sem_init(&semaphore, 1, 0), 0);
    const CSharedCount count(&semaphore);
    {
        const FailingCall woken("syscall", 0, 0, 1);
        EXPECT_EQ(count.wait(1), CSharedCount::eTimeout);
        EXPECT_EQ(woken.count(), 1);
    }
    {
        const FailingCall interrupted("syscall", EINTR, 0, 1);
        EXPECT_EQ(count.wait(1), CSharedCount::eTimeout);
        EXPECT_EQ(interrupted.count(), 1);
    }
    {
        const FailingCall interrupted("syscall", EINTR);
        EXPECT_EQ(count.wait(1), CSharedCount::eTimeout) << "its time has passed";
    }
    int value = -1;
    EXPECT_EQ(::sem_getvalue(&semaphore, &value), 0);
    EXPECT_EQ(value, 0);
    EXPECT_TRUE(count.post());
    EXPECT_EQ(count.wait(0), CSharedCount::eTaken);
}

TEST(CountCalls, ASemaphoreThatIsGoneIsTold) {
    SKIP_UNLESS_WRAPPED();
    sem_t semaphore;
    ASSERT_EQ(::sem_init(&semaphore, 1, 0), 0);
    const CSharedCount count(&semaphore);
    struct Step {
        int skip;  // calls that still succeed
        bool isPosted;
    };
    for (const Step& step : {Step{0, false}, Step{1, true}}) {
        if (step.isPosted) {
            EXPECT_TRUE(count.post());
        }
        const FailingCall gone("syscall", EFAULT, step.skip);
        EXPECT_EQ(count.wait(1), CSharedCount::eLost);
        EXPECT_GT(gone.count(), 0);
    }
    {
        const FailingCall unread("process_vm_readv", EFAULT);
        EXPECT_EQ(count.wait(0), CSharedCount::eLost);
        EXPECT_EQ(unread.count(), 1);
    }
    {
        const FailingCall woken("syscall", 0, 0, 1);
        const FailingCall gone("syscall", EFAULT, 2);  // taken, and cannot be given back
        EXPECT_EQ(count.wait(1), CSharedCount::eLost);
    }
    const FailingCall gone("syscall", EFAULT);
    EXPECT_FALSE(count.post());
    EXPECT_FALSE(count.announceWaiting());
}

// A program that is started at any moment gets none of the descriptors.
TEST_F(SemaphoreCalls, HandsNoDescriptorOn) {
    SKIP_UNLESS_WRAPPED();
    SemaphoreOf semaphore(name);
    EXPECT_TRUE(semaphore.own());
    const SemaphoreOf again(name);
    CPSemaphore::waitUntilFree(name);
    EXPECT_FALSE(CPSemaphore::removeIfOwnerless(name));
    EXPECT_EQ(vqtest::descriptorsHandedOn(), 0);
}
