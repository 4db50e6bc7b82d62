// Who owns a semaphore, and what becomes of one that is lost or nobody's.
#include "portable/Semaphore.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
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
#include "support/Wait.h"

namespace fs = std::filesystem;

using VQRegLib::CPSemaphore;
using VQRegLib::CTerminateWait;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::SemaphoreOf;
using vqtest::waitUntil;

namespace {

class SemaphoreOwner : public vqtest::SemaphoreTest {};

}  // namespace

TEST_F(SemaphoreOwner, WithoutOwnersItMayBeRemoved) {
    SemaphoreOf semaphore(name);
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_FALSE(CPSemaphore::removeIfOwnerless(name));
    // It lives on for those who have it open.
    semaphore.release();
    EXPECT_TRUE(semaphore.wait(0, nullptr));
}

TEST_F(SemaphoreOwner, WithAnOwnerItStays) {
    SemaphoreOf semaphore(name);
    ASSERT_TRUE(semaphore.own());
    EXPECT_FALSE(CPSemaphore::removeIfOwnerless(name));
    ForkedChild child([&] { return CPSemaphore::removeIfOwnerless(name) ? 1 : 0; });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(SemaphoreOwner, OwningMakesANameThatIsMissing) {
    SemaphoreOf semaphore(name);
    fs::remove(path);
    ASSERT_TRUE(semaphore.own());
    ASSERT_TRUE(fs::exists(path));
    SemaphoreOf other(name);
    other.release();
    EXPECT_TRUE(semaphore.wait(0, nullptr)) << "the owner has the object that others find";
}

TEST_F(SemaphoreOwner, OwningWaitsForASenderThatLooks) {
    SemaphoreOf semaphore(name);
    const int looking = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(looking, LOCK_EX), 0);
    std::atomic<bool> isOwner{false};
    std::thread owning([&] { isOwner = semaphore.own(); });
    EXPECT_FALSE(waitUntil([&] { return isOwner.load(); }, std::chrono::milliseconds(20)));
    fs::remove(path);  // it finds no owner
    ::close(looking);
    owning.join();
    EXPECT_TRUE(isOwner);
    SemaphoreOf other(name);
    other.release();
    EXPECT_TRUE(semaphore.wait(0, nullptr));
}

TEST_F(SemaphoreOwner, OwningGivesUpOnASenderThatLooksForEver) {
    SemaphoreOf semaphore(name);
    const int looking = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(looking, LOCK_EX), 0);
    EXPECT_FALSE(semaphore.own());
    EXPECT_EQ(semaphore.error(), EWOULDBLOCK);
    ::close(looking);
}

TEST_F(SemaphoreOwner, AProgramMayCloseTheDescriptorAndUseItsNumber) {
    ForkedChild program([&] {
        SemaphoreOf semaphore(name);
        if (!semaphore.own() || ::close_range(3, ~0u, 0) != 0) {
            return 1;
        }
        const int own = ::open("/dev/null", O_RDWR);
        while (::dup(own) < 32) {
        }
        ForkedChild child([&] {
            for (int fd = own; fd <= 32; ++fd) {
                if (::fcntl(fd, F_GETFD) == -1) {
                    return fd;
                }
            }
            return 0;
        });
        const int closed = child.wait();
        std::exit(closed);  // takes no lock on a file that is not its own
        return 0;
    });
    EXPECT_EQ(program.wait(), 0) << "this descriptor of the program was closed in its child";
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name));
}

TEST_F(SemaphoreOwner, AProgramMayUseTheNumberForAnotherFileOfTheSameDirectory) {
    const std::string other = path + "-other";
    ForkedChild program([&] {
        SemaphoreOf semaphore(name);
        if (!semaphore.own() || ::close_range(3, ~0u, 0) != 0) {
            return 1;
        }
        const int own = ::open(other.c_str(), O_RDWR | O_CREAT, 0600);
        while (::dup(own) < 32) {
        }
        std::exit(semaphore.isOwner() ? 2 : 0);
        return 0;
    });
    EXPECT_EQ(program.wait(), 0) << "it takes the other file for its own";
    EXPECT_TRUE(fs::remove(other));
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name)) << "it was not owned at the end";
}

TEST_F(SemaphoreOwner, AChildThatHasRunNoForkHandlersTakesNothingAlong) {
    SemaphoreOf semaphore(name);
    ForkedChild owner([&] {
        if (!semaphore.own()) {
            return 1;
        }
        const pid_t child = ::_Fork();
        if (child == 0) {
            std::exit(semaphore.isOwner() ? 2 : 0);
        }
        int status = -1;
        while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        return status != 0 ? 3 : semaphore.isOwner() ? 0 : 4;
    });
    EXPECT_EQ(owner.wait(), 0);
}

TEST_F(SemaphoreOwner, IsOwnerlessAfterItsOwnersDeath) {
    Common<std::atomic<bool>> isOwned;
    ForkedChild owner([&] {
        SemaphoreOf semaphore(name);
        *isOwned = semaphore.own();
        ::pause();
        return 0;
    });
    ASSERT_TRUE(waitUntil([&] { return isOwned->load(); }));
    EXPECT_FALSE(CPSemaphore::removeIfOwnerless(name));
    owner.kill();
    EXPECT_TRUE(fs::exists(path));
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name));
}

TEST_F(SemaphoreOwner, StaysWhileOneOfTwoOwnersLives) {
    Common<std::atomic<bool>> isOwned;
    ForkedChild first([&] {
        SemaphoreOf semaphore(name);
        if (!semaphore.own()) {
            return 1;
        }
        *isOwned = true;
        ::pause();
        return 0;
    });
    ASSERT_TRUE(waitUntil([&] { return isOwned->load(); }));
    ForkedChild second([&] {
        SemaphoreOf semaphore(name);
        std::exit(semaphore.own() ? 0 : 1);
        return 0;
    });
    EXPECT_EQ(second.wait(), 0);
    EXPECT_TRUE(fs::exists(path)) << "the end of one took it from the other";
    EXPECT_FALSE(CPSemaphore::removeIfOwnerless(name));
    first.kill();
    EXPECT_TRUE(CPSemaphore::removeIfOwnerless(name));
}

TEST_F(SemaphoreOwner, GoesWithANormalEndOfItsOwner) {
    ForkedChild owner([&] {
        SemaphoreOf semaphore(name);
        std::exit(semaphore.own() && fs::exists(path) ? 0 : 1);
        return 0;
    });
    EXPECT_EQ(owner.wait(), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(SemaphoreOwner, IsNotOwnedByAForkedChild) {
    Common<std::atomic<pid_t>> child;
    ForkedChild owner([&] {
        SemaphoreOf semaphore(name);
        if (!semaphore.own()) {
            return 1;
        }
        ForkedChild ended([] {
            std::exit(0);
            return 0;
        });
        ended.wait();
        ForkedChild living([] { return ::pause(); });
        *child = living.pid();
        ::pause();
        return 0;
    });
    ASSERT_TRUE(waitUntil([&] { return *child != 0; }));
    EXPECT_TRUE(fs::exists(path));
    owner.kill();
    EXPECT_EQ(::kill(*child, 0), 0);
    // The child may not have come to run yet.
    EXPECT_TRUE(waitUntil([&] { return CPSemaphore::removeIfOwnerless(name); }))
        << "the child keeps it";
    ASSERT_GT(*child, 0);
    ::kill(*child, SIGKILL);
}

TEST_F(SemaphoreOwner, KnowsWhetherItIsOwned) {
    SemaphoreOf semaphore(name);
    EXPECT_FALSE(semaphore.isOwner());
    ASSERT_TRUE(semaphore.own());
    EXPECT_TRUE(semaphore.isOwner());
    ForkedChild child([&] { return semaphore.isOwner() ? 1 : 0; });
    EXPECT_EQ(child.wait(), 0) << "a child owns it";
    const SemaphoreOf other(name + "-other");
    EXPECT_FALSE(other.isOwner());
    fs::remove(path + "-other");
    fs::remove(path);
    EXPECT_FALSE(semaphore.isOwner()) << "its name is gone";
    ASSERT_TRUE(semaphore.own());
    EXPECT_TRUE(semaphore.isOwner());
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(SemaphoreOwner, IsLostWithTheDescriptorAndMayBeOwnedAgain) {
    ForkedChild program([&] {
        SemaphoreOf semaphore(name);
        if (!semaphore.own() || ::close_range(3, ~0u, 0) != 0) {
            return 1;
        }
        if (semaphore.isOwner()) {
            return 2;
        }
        const int own = ::open("/dev/null", O_RDWR);
        while (::dup(own) < 32) {
        }
        if (semaphore.isOwner() || !semaphore.own() || !semaphore.isOwner()) {
            return 3;
        }
        for (int fd = own; fd <= 32; ++fd) {
            if (::fcntl(fd, F_GETFD) == -1) {
                return 4;
            }
        }
        std::exit(CPSemaphore::removeIfOwnerless(name) ? 5 : 0);
        return 0;
    });
    EXPECT_EQ(program.wait(), 0);
    EXPECT_FALSE(fs::exists(path)) << "it goes with a normal end again";
}

TEST_F(SemaphoreOwner, IsOwnedAgainUnderTheNumberThatItHad) {
    ForkedChild program([&] {
        SemaphoreOf semaphore(name);
        for (int i = 0; i < 3; ++i) {
            if (!semaphore.own() || !semaphore.isOwner()) {
                return 1;
            }
            if (CPSemaphore::removeIfOwnerless(name) || ::close_range(3, ~0u, 0) != 0) {
                return 2;
            }
        }
        return 0;
    });
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(SemaphoreOwner, IsNotOwnedAgainAfterTheExitTookItAway) {
    static SemaphoreOf* semaphore = nullptr;
    ForkedChild program([&] {
        semaphore = new SemaphoreOf(name);
        // Before the library's, so that it runs after that.
        std::atexit([] {
            const bool isOwned = semaphore->own();
            ::_exit(!isOwned && semaphore->error() == ESHUTDOWN ? 0 : 1);
        });
        std::exit(semaphore->own() ? 2 : 3);
        return 0;
    });
    EXPECT_EQ(program.wait(), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(SemaphoreOwner, IsAbandonedWithoutOwnerWithoutProcessAndAfterAMoment) {
    // Numbers that no process can have; the name of the fixture ends in this process's.
    const std::string abandoned = name + "-999999999";
    const std::string owned = name + "-999999998";
    const std::string unnumbered = name + "-";
    const std::string pipe = name + "-999999997";
    const auto fileOf = [](const std::string& of) { return "/dev/shm/sem." + of; };
    const SemaphoreOf made[] = {SemaphoreOf(abandoned), SemaphoreOf(unnumbered), SemaphoreOf(name)};
    SemaphoreOf own(owned);
    ASSERT_TRUE(own.own());
    ASSERT_EQ(::mkfifo(fileOf(pipe).c_str(), 0600), 0);
    EXPECT_FALSE(CPSemaphore::removeIfAbandoned(abandoned)) << "just made";
    EXPECT_TRUE(fs::exists(fileOf(abandoned)));
    EXPECT_TRUE(waitUntil([&] { return CPSemaphore::removeIfAbandoned(abandoned); }));
    EXPECT_FALSE(fs::exists(fileOf(abandoned)));
    for (const std::string& kept : {owned, unnumbered, pipe, name}) {
        EXPECT_FALSE(CPSemaphore::removeIfAbandoned(kept)) << kept;
        EXPECT_TRUE(fs::exists(fileOf(kept))) << kept;
        fs::remove(fileOf(kept));
    }
}

TEST_F(SemaphoreOwner, ReleasesDoNotMakeItYounger) {
    const std::string abandoned = name + "-999999999";
    SemaphoreOf semaphore(abandoned);
    EXPECT_TRUE(waitUntil([&] {
        SemaphoreOf(abandoned).release();
        return CPSemaphore::removeIfAbandoned(abandoned);
    }));
}
