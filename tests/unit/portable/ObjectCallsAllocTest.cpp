// The system refuses a call while a block, a lock or another shared file is opened or used: the error is told, nothing is left, and the
// next attempt succeeds. In an executable of its own, because it replaces calls of the system.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "portable/Mutex.h"
#include "portable/NamedObjects.h"
#include "portable/Semaphore.h"
#include "portable/SharedFile.h"
#include "portable/SharedMemory.h"
#include "support/FailingCalls.h"
#include "support/SemaphoreFixture.h"
#include "support/TempStore.h"
#include "support/Wait.h"
#include "unit/portable/Refused.h"

using VQRegLib::CPMutex;
using VQRegLib::CPSemaphore;
using VQRegLib::CPSharedMemory;
using VQRegLib::CSharedFile;
using vqtest::FailingCall;
using vqtest::Refused;
using vqtest::SemaphoreOf;

namespace {

class BlockRefused : public testing::TestWithParam<Refused> {};
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
                                         Refused{"linkat", ENOENT}, Refused{"fcntl", ENOLCK},
                                         Refused{"shmget", ENOSPC}, Refused{"mmap", ENOMEM},
                                         Refused{"shmat", ENOMEM}, Refused{"pwrite", ENOSPC}),
                         vqtest::nameOfRefused);

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

TEST(BlockCalls, ABlockThatAnotherOneHasMadeMeanwhileIsUsed) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    CPSharedMemory first(store.path(), 8);
    ASSERT_EQ(first.error(), 0);
    const FailingCall refused("shmat", EINVAL, 0, 1);  // found under the lock only
    const CPSharedMemory second(store.path(), 8);
    EXPECT_EQ(refused.count(), 1);
    EXPECT_EQ(second.error(), 0);
    EXPECT_EQ(second.isCreator(), 0);
    EXPECT_EQ(second.tag(), first.tag());
    EXPECT_TRUE(first.isCurrent());
}

TEST(BlockCalls, OneThatCouldNotBeOpenedIsNeverCurrent) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    const CPSharedMemory first(store.path(), 8);
    const FailingCall refused("open", EMFILE, 0, 2);
    CPSharedMemory second(store.path(), 8);
    EXPECT_EQ(second.getAddress(), nullptr);
    EXPECT_FALSE(second.isCurrent());
    EXPECT_EQ(refused.count(), 2);
    EXPECT_FALSE(second.isCurrent()) << "its file is there, but nothing of it is attached";
}

TEST(BlockCalls, ABlockOfAnotherSizeIsReplaced) {
    const vqtest::TempStore store;
    CPSharedMemory first(store.path(), 8);
    const CPSharedMemory second(store.path(), 16);
    EXPECT_EQ(second.error(), 0);
    EXPECT_NE(second.isCreator(), 0);
    EXPECT_FALSE(first.isCurrent());
}

TEST(BlockCalls, ARecordThatIsNotQuiteOneLeadsToNoBlock) {
    const auto spoil = [](VQRegLib::CBlockRecord& record, bool isTag) {
        record.tag[0] = static_cast<char>(record.tag[0] + (isTag ? 1 : 0));
        record.id += isTag ? 0 : std::int64_t{1} << 32;
    };
    for (const bool isTag : {true, false}) {
        const vqtest::TempStore store;
        CPSharedMemory first(store.path(), 8);
        std::fstream file(VQRegLib::objectPath("CPBlock", store.path()),
                          std::ios::in | std::ios::out | std::ios::binary);
        VQRegLib::CBlockRecord record{};
        file.read(reinterpret_cast<char*>(&record), sizeof record);
        spoil(record, isTag);
        file.seekp(0);
        file.write(reinterpret_cast<const char*>(&record), sizeof record);
        file.close();
        const CPSharedMemory second(store.path(), 8);
        EXPECT_EQ(second.error(), 0);
        EXPECT_NE(second.isCreator(), 0) << isTag;
    }
}

TEST(BlockCalls, WhoeverIsMakingOneIsWaitedForUnlessItIsOnlyTried) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    const FailingCall making("fcntl", EAGAIN);
    const FailingCall naps("nanosleep", 0);
    const CPSharedMemory tried(store.path(), 8, CPSharedMemory::eTry);
    EXPECT_EQ(tried.error(), EAGAIN);
    EXPECT_EQ(naps.count(), 0);
    const CPSharedMemory waited(store.path(), 8);
    EXPECT_EQ(waited.error(), EAGAIN);
    EXPECT_EQ(naps.count(), 400);
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

TEST(BlockCalls, WhatHasNotChangedSinceTheLastLookIsNotReadAgain) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    CPSharedMemory block(store.path(), 8);
    EXPECT_TRUE(vqtest::waitUntil([&] {
        const bool isSeen = block.isCurrent();
        const FailingCall unread("pread", EIO);
        return isSeen && block.isCurrent();
    }));
    std::ofstream(VQRegLib::objectPath("CPBlock", store.path()), std::ios::binary) << "other";
    EXPECT_FALSE(block.isCurrent());
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
                         vqtest::nameOfRefused);

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
    EXPECT_TRUE(VQRegLib::CPEnumNamedObjects(name, 0).isComplete());
    {
        const FailingCall refused("opendir", EMFILE);
        const VQRegLib::CPEnumNamedObjects none(name, 0);
        EXPECT_EQ(none.enumNamedObject(0, &found, &type), 0);
        EXPECT_FALSE(none.isComplete());
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

// A program that is started at any moment gets none of the descriptors.
TEST(SharedFileCalls, AreHandedToNoOtherProgram) {
    SKIP_UNLESS_WRAPPED();
    const vqtest::TempStore store;
    CPMutex mutex(1, 0, store.path(), 1, 1);
    EXPECT_EQ(mutex.wait(0, nullptr), CPMutex::eOwned);
    EXPECT_EQ(mutex.holder().pid, ::getpid());
    const CPSharedMemory block(store.path(), 8);
    const CPSharedMemory again(store.path(), 8);
    EXPECT_EQ(again.error(), 0);
    EXPECT_EQ(vqtest::descriptorsHandedOn(), 0);
}
