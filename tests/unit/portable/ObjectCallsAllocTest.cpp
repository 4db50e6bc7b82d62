// The system refuses a call while a shared object is opened or used: the error is told, nothing is left,
// and the next attempt succeeds. In an executable of its own, because it replaces calls of the system.
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "portable/Mutex.h"
#include "portable/NamedObjects.h"
#include "portable/Semaphore.h"
#include "portable/SharedCount.h"
#include "portable/SharedFile.h"
#include "portable/SharedMemory.h"
#include "support/FailingCalls.h"
#include "support/SemaphoreFixture.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

using VQRegLib::CPMutex;
using VQRegLib::CPSemaphore;
using VQRegLib::CPSharedMemory;
using VQRegLib::CSharedCount;
using VQRegLib::CSharedFile;
using vqtest::FailingCall;
using vqtest::SemaphoreOf;

namespace {

// The functions have other names where files of more than 2 GiB need another one.
bool areWrapped() {
    return sizeof(void*) == 8;
}

#define SKIP_UNLESS_WRAPPED()                                     \
    if (!areWrapped()) {                                          \
        GTEST_SKIP() << "the library calls other functions here"; \
    }

struct Refused {
    const char* function;
    int error;
    int skip = 0;
};

void PrintTo(const Refused& refused, std::ostream* out) {
    *out << refused.function << "_" << refused.skip;
}

std::string nameOf(const testing::TestParamInfo<Refused>& info) {
    return testing::PrintToString(info.param);
}

class BlockRefused : public testing::TestWithParam<Refused> {};
class SemaphoreRefused : public testing::TestWithParam<Refused> {};
class LockRefused : public testing::TestWithParam<Refused> {};

}  // namespace

TEST_P(BlockRefused, TellsWhyAndLeavesNothingInTheWay) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    {
        const FailingCall refused(GetParam().function, GetParam().error, GetParam().skip);
        const CPSharedMemory block(store.path(), 8);
        EXPECT_EQ(block.getAddress(), nullptr);
        EXPECT_EQ(block.error(), GetParam().error);
        EXPECT_GT(refused.count(), 0);
    }
    const CPSharedMemory block(store.path(), 8);
    EXPECT_EQ(block.error(), 0);
    EXPECT_NE(block.isCreator(), 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, BlockRefused,
                         testing::Values(Refused{"open", EMFILE}, Refused{"open", ENFILE, 1},
                                         Refused{"fstat", EIO}, Refused{"posix_fallocate", ENOSPC},
                                         Refused{"fchmod", EPERM}, Refused{"linkat", EDQUOT},
                                         Refused{"fcntl", ENOLCK}, Refused{"shmget", ENOSPC},
                                         Refused{"mmap", ENOMEM}, Refused{"shmat", ENOMEM},
                                         Refused{"pwrite", ENOSPC}),
                         nameOf);

TEST(BlockCalls, ASegmentThatCannotBeAttachedIsReplaced) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    CPSharedMemory first(store.path(), 8);
    ASSERT_EQ(first.error(), 0);
    const FailingCall refused("shmat", ENOMEM, 0, 2);  // before the lock and with it
    const CPSharedMemory second(store.path(), 8);
    EXPECT_EQ(refused.count(), 2);
    EXPECT_EQ(second.error(), 0);
    EXPECT_NE(second.isCreator(), 0);
    EXPECT_FALSE(first.isCurrent());
}

TEST(BlockCalls, ABlockOfAnotherSizeIsReplaced) {
    const vqtest::TempStore store;
    CPSharedMemory first(store.path(), 8);
    const CPSharedMemory second(store.path(), 16);
    EXPECT_EQ(second.error(), 0);
    EXPECT_NE(second.isCreator(), 0);
    EXPECT_FALSE(first.isCurrent());
}

TEST(BlockCalls, BlocksDifferWhereTheKernelHasNoRandomnessYet) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    const FailingCall refused("getrandom", EAGAIN);
    CPSharedMemory first(store.path(), 8);
    ASSERT_EQ(first.error(), 0);
    EXPECT_GT(refused.count(), 0);
    std::filesystem::remove(VQRegLib::objectPath("CPBlock", store.path()));
    const CPSharedMemory second(store.path(), 8);
    EXPECT_NE(first.tag(), second.tag());
    EXPECT_FALSE(first.isCurrent());
}

TEST(BlockCalls, WithoutProcTheNamespaceIsUnknownAndTheBlockIsThere) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    const FailingCall refused("stat", ENOENT);
    const CPSharedMemory first(store.path(), 8);
    const CPSharedMemory second(store.path(), 8);
    EXPECT_GT(refused.count(), 0);
    EXPECT_NE(first.isCreator(), 0);
    EXPECT_EQ(second.isCreator(), 0);
}

TEST(BlockCalls, WithoutAClockEachLookCountsAlone) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    CPSharedMemory block(store.path(), 8);
    const FailingCall refused("clock_gettime", EINVAL);
    EXPECT_TRUE(block.isCurrent());
    EXPECT_TRUE(block.isCurrent());
    std::ofstream(VQRegLib::objectPath("CPBlock", store.path()), std::ios::binary) << "other";
    EXPECT_FALSE(block.isCurrent());
}

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
                                         Refused{"linkat", EDQUOT}),
                         nameOf);

namespace {

class SemaphoreCalls : public vqtest::SemaphoreTest {};

}  // namespace

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

TEST_P(LockRefused, IsNotTakenAndTellsWhy) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    CPMutex mutex(1, 0, store.path(), 1, 1);
    ASSERT_TRUE(mutex.isOpen());
    {
        const FailingCall refused(GetParam().function, GetParam().error);
        EXPECT_EQ(mutex.wait(0, nullptr), CPMutex::eFailed);
        EXPECT_EQ(mutex.error(), GetParam().error);
        EXPECT_FALSE(mutex.isHeldHere());
        EXPECT_EQ(mutex.release(), EPERM);
        EXPECT_GT(refused.count(), 0);
    }
    std::thread([&] { EXPECT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned); }).join();
}

INSTANTIATE_TEST_SUITE_P(Calls, LockRefused,
                         testing::Values(Refused{"flock", ENOLCK}, Refused{"open", EMFILE}),
                         nameOf);

TEST(LockCalls, ASignalDoesNotEndAWait) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    CPMutex mutex(1, 0, store.path(), 1, 1);
    const FailingCall interrupted("flock", EINTR, 0, 3);
    EXPECT_EQ(mutex.wait(1000, nullptr), CPMutex::eOwned);
    EXPECT_EQ(interrupted.count(), 3);
    EXPECT_EQ(mutex.release(), 0);
    const FailingCall again("flock", EINTR, 0, 3);
    EXPECT_EQ(mutex.wait(CPMutex::kInfinite, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex.release(), 0);
}

TEST(LockCalls, WhoHoldsItIsUnknownWhereItsFileCannotBeOpened) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    CPMutex mutex(1, 0, store.path(), 1, 1);
    ASSERT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    mutex.noteHolding();
    EXPECT_EQ(mutex.holder().pid, ::getpid());
    EXPECT_GT(mutex.holder().sinceSec, 0);
    {
        const FailingCall unread("pread", EIO);
        EXPECT_EQ(mutex.holder().pid, ::getpid());
        EXPECT_EQ(mutex.holder().sinceSec, 0);
        EXPECT_FALSE(mutex.isMarked());
        EXPECT_EQ(mutex.counter().number, 0u);
    }
    const FailingCall refused("open", EMFILE);
    EXPECT_EQ(mutex.holder().pid, 0);
    EXPECT_EQ(mutex.holder().sinceSec, 0);
}

TEST(SharedFileCalls, IsNamedWithoutProcByWhoMay) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    const std::string name = "vqreg-test-file-" + std::to_string(::getpid());
    CSharedFile file;
    {
        const FailingCall noProc("linkat", ENOENT, 0, 1);
        EXPECT_EQ(file.open(name, 40), 0);
        EXPECT_EQ(noProc.count(), 1);
        EXPECT_TRUE(file.isNamed());
    }
    const std::string path = "/dev/shm/" + name;
    EXPECT_EQ(std::filesystem::file_size(path), 40u);
    EXPECT_TRUE(std::filesystem::remove(path));
    EXPECT_FALSE(file.isInPlace());
}

TEST(SharedFileCalls, KeepsNothingWhenThereIsNoSecondDescriptor) {
    SKIP_UNLESS_WRAPPED();
    const std::string name = "vqreg-test-file-" + std::to_string(::getpid());
    CSharedFile file;
    ASSERT_EQ(file.open(name, 40), 0);
    for (const char* function : {"fcntl", "fstat"}) {
        CSharedFile second;
        const FailingCall refused(function, EMFILE);
        second.keep(file.descriptor(), "/dev/shm/" + name);
        EXPECT_LT(second.descriptor(), 0);
        EXPECT_GT(refused.count(), 0);
    }
    CSharedFile second;
    second.keep(file.descriptor(), "/dev/shm/" + name);
    EXPECT_TRUE(second.isInPlace());
    std::filesystem::remove("/dev/shm/" + name);
}

TEST(SharedFileCalls, ANameThatComesAndGoesIsTriedAHundredTimes) {
    SKIP_UNLESS_WRAPPED();
    const std::string name = "vqreg-test-file-" + std::to_string(::getpid());
    CSharedFile file;
    {
        const FailingCall taken("linkat", EEXIST);  // by another process, which removes it again
        EXPECT_EQ(file.open(name, 40), EEXIST);
        EXPECT_EQ(taken.count(), 100);
    }
    const FailingCall taken("linkat", EEXIST, 0, 99);
    EXPECT_EQ(file.open(name, 40), 0);
    std::filesystem::remove("/dev/shm/" + name);
}

TEST(NamesCalls, ThereAreNoneWhereTheDirectoryCannotBeRead) {
    SKIP_UNLESS_WRAPPED();
    const std::string name = "vqreg-test-names-" + std::to_string(::getpid());
    const SemaphoreOf semaphore(name);
    std::string found;
    int type = -1;
    EXPECT_EQ(VQRegLib::CPEnumNamedObjects(name, 0).enumNamedObject(0, &found, &type), 1);
    {
        const FailingCall refused("opendir", EMFILE);
        EXPECT_EQ(VQRegLib::CPEnumNamedObjects(name, 0).enumNamedObject(0, &found, &type), 0);
    }
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name));
}

TEST(NamesCalls, AMarkThatCouldNotBeTakenIsLikeNoOther) {
    SKIP_UNLESS_WRAPPED();
    using VQRegLib::CNamesMark;
    ASSERT_TRUE(
        vqtest::waitUntil([] { return CNamesMark::now().isUnchangedSince(CNamesMark::now()); }));
    const CNamesMark before = CNamesMark::now();
    for (const char* function : {"stat", "clock_gettime"}) {
        const FailingCall refused(function, EIO);
        EXPECT_FALSE(CNamesMark::now().isUnchangedSince(before));
        EXPECT_FALSE(CNamesMark::now().isUnchangedSince(CNamesMark::now()));
    }
    EXPECT_TRUE(CNamesMark::now().isUnchangedSince(before));
}
