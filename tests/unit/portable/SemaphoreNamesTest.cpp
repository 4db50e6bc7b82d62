// What a semaphore's name tells of it, and what may lie under one.
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "support/SemaphoreFixture.h"

namespace fs = std::filesystem;
using VQRegLib::CPSemaphore;
using VQRegLib::CTerminateWait;
using vqtest::SemaphoreOf;

namespace {

class SemaphoreNames : public vqtest::SemaphoreTest {};

}  // namespace

TEST_F(SemaphoreNames, OnlyANumberThatNoProcessHasCanBeAbandoned) {
    for (const std::string& end : {std::string("-name"), "-" + std::to_string(::getpid())}) {
        const std::string other = name + end;
        { const SemaphoreOf made(other); }
        EXPECT_FALSE(CPSemaphore::removeIfAbandoned(other)) << end;
        EXPECT_TRUE(CPSemaphore::removeIfOwnerless(other));
    }
}

TEST_F(SemaphoreNames, ANumberThatIsTooLargeOrNoneIsNoProcess) {
    for (const char* const end : {"-0", "-99999999999", "-2147483647"}) {
        const std::string other = name + end;
        { const SemaphoreOf made(other); }
        EXPECT_FALSE(CPSemaphore::removeIfAbandoned(other)) << "its maker may be about to own it";
        // Removed once it is old: the test does without the wait, another one has it.
        EXPECT_TRUE(CPSemaphore::removeIfOwnerless(other));
    }
    EXPECT_FALSE(CPSemaphore::removeIfAbandoned(name + "-0")) << "it is gone";
}

TEST_F(SemaphoreNames, WhatIsNoFileIsNotRemovedForAnOwner) {
    fs::create_symlink("/dev/null", path);
    SemaphoreOf link(name);
    EXPECT_FALSE(link.own(2));
    EXPECT_TRUE(fs::is_symlink(path));
    fs::remove(path);
    fs::create_directory(path);
    SemaphoreOf directory(name);
    EXPECT_FALSE(directory.own(2));
    EXPECT_TRUE(fs::is_directory(path));
    fs::remove(path);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    SemaphoreOf fifo(name);
    EXPECT_EQ(fifo.error(), EINVAL);
    EXPECT_FALSE(fifo.own(2));
    EXPECT_TRUE(fs::is_fifo(path));
}

TEST_F(SemaphoreNames, ALinkIsNoSemaphoreThatHasLostItsOwner) {
    const std::string target = path + "-target";
    { const SemaphoreOf made(name + "-target"); }
    fs::create_symlink(target, path);
    EXPECT_FALSE(CPSemaphore::removeIfOwnerless(name));
    EXPECT_TRUE(fs::is_symlink(path));
    fs::remove(path);
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name + "-target"));
}

TEST_F(SemaphoreNames, AFileOfAnotherSizeMakesRoomForAnOwner) {
    std::ofstream(path) << "short";
    SemaphoreOf semaphore(name);
    EXPECT_FALSE(semaphore.isOpen());
    EXPECT_TRUE(semaphore.own(2));
    EXPECT_EQ(fs::file_size(path), sizeof(sem_t));
    EXPECT_TRUE(semaphore.isOwner());
}

TEST_F(SemaphoreNames, WhatWasNoSemaphoreMayBeGoneWhenItIsToBeOwned) {
    std::ofstream(path) << "short";
    SemaphoreOf semaphore(name);
    ASSERT_EQ(semaphore.error(), EINVAL);
    fs::remove(path);
    EXPECT_TRUE(semaphore.own(2));
    EXPECT_TRUE(semaphore.isOwner());
}

TEST_F(SemaphoreNames, WhatOthersHavePutInPlaceOfAUselessFileIsOwned) {
    std::ofstream(path) << "short";
    SemaphoreOf semaphore(name);
    ASSERT_EQ(semaphore.error(), EINVAL);
    fs::remove(path);
    SemaphoreOf others(name);
    EXPECT_TRUE(semaphore.own(2));
    others.release();
    EXPECT_TRUE(semaphore.wait(0, nullptr)) << "it was made anew";
}

TEST_F(SemaphoreNames, AWaitEndsWhenItsCallerIsToldToEnd) {
    SemaphoreOf semaphore(name);
    CTerminateWait terminate;
    EXPECT_FALSE(semaphore.wait(60, &terminate)) << "more than one look at it";
    std::thread ending([&] { terminate.terminate(); });
    EXPECT_FALSE(semaphore.wait(CPSemaphore::kInfinite, &terminate));
    ending.join();
    semaphore.release();
    EXPECT_FALSE(semaphore.wait(0, &terminate)) << "it stays told";
    EXPECT_TRUE(semaphore.wait(0, nullptr));
}
