// What another user can do to processes through the objects that they share: everybody may write and
// lock these. He can keep others from changing a store for as long as he is at it, and no more.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/OtherUser.h"
#include "support/TempStore.h"
#include "support/Wait.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::TempStore;

namespace {

constexpr std::uint32_t kChanges = 150;
constexpr int kAttacks = 100;
constexpr off_t kGiant = off_t{1} << 30;
constexpr int kNoAttacker = 99;  // exit status of one who cannot become another user

bool becomeNobody() {
    return ::setgroups(0, nullptr) == 0 &&
           ::setresgid(vqtest::kNobody, vqtest::kNobody, vqtest::kNobody) == 0 &&
           ::setresuid(vqtest::kNobody, vqtest::kNobody, vqtest::kNobody) == 0;
}

// A child of the test that runs as another user.
template <typename Body>
std::unique_ptr<ForkedChild> asNobody(Body body) {
    const pid_t parent = ::getpid();
    return std::make_unique<ForkedChild>([=]() -> int {
        if (!becomeNobody()) {
            return kNoAttacker;
        }
        vqtest::endWithParent(parent);  // only now: a change of users takes it back
        return body();
    });
}

int openObject(const std::string& path) {
    return ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
}

// What is done to one object, once; false when the system refuses it.
using Attack = std::function<bool(const std::string& path)>;

bool cut(const std::string& path) {
    return ::truncate(path.c_str(), 0) == 0;
}

bool fillWithGarbage(const std::string& path) {
    static std::minstd_rand random(1);
    unsigned char garbage[4096];
    for (unsigned char& byte : garbage) {
        byte = static_cast<unsigned char>(random());
    }
    const int fd = openObject(path);
    const bool isWritten = ::pwrite(fd, garbage, sizeof garbage, 0) == sizeof garbage;
    ::close(fd);
    return isWritten;
}

bool makeGiant(const std::string& path) {
    return ::truncate(path.c_str(), kGiant) == 0;
}

bool makeGiantOfNothing(const std::string& path) {
    return cut(path) && makeGiant(path);
}

// The memory that the block's object names, as its users find it: behind a magic and a namespace of
// eight bytes each stands the segment's id, and the stamp lies behind 64 bytes of the segment.
std::atomic<std::uint64_t>* attachStamp(const std::string& path) {
    std::int64_t record[3] = {};
    const int fd = openObject(path);
    const bool isRead = ::pread(fd, record, sizeof record, 0) == sizeof record;
    ::close(fd);
    void* const segment = isRead ? ::shmat(static_cast<int>(record[2]), nullptr, 0) : nullptr;
    if (!segment || segment == reinterpret_cast<void*>(-1)) {
        return nullptr;
    }
    return reinterpret_cast<std::atomic<std::uint64_t>*>(static_cast<char*>(segment) + 64);
}

bool isBlock(const std::string& path) {
    return path.find("CPBlock.") != std::string::npos;
}

// Even and odd ones, and the ends of the range.
bool scribbleStamps(const std::string& path) {
    static std::mt19937_64 random(1);
    if (!isBlock(path)) {
        return true;
    }
    std::atomic<std::uint64_t>* const stamp = attachStamp(path);
    if (!stamp) {
        return false;
    }
    for (int i = 0; i < 200; ++i) {
        *stamp = i % 50 == 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(i / 50) : random();
    }
    ::shmdt(reinterpret_cast<char*>(stamp) - 64);
    return true;
}

// A store that processes of the test's user have open and work with.
class AttackedStore : public testing::Test {
protected:
    struct Progress {
        std::atomic<int> attacks;
        std::atomic<bool> isOver;
    };

    void SetUp() override {
        if (asNobody([] { return 0; })->wait() != 0) {
            GTEST_SKIP() << "a process may not become another user here";
        }
        session = vqtest::openSession(store.path());
        ASSERT_NE(session->RootKey(), nullptr);
        ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
        ASSERT_EQ(other.open(store.path()), REGLIB_OK);
        ASSERT_EQ(vqtest::setNumber(*session, "A", 0), REGLIB_OK);
        ASSERT_EQ(agent.set(".", "B", 0u), REGLIB_OK);
        for (const std::string& name : store.sharedObjects()) {
            objects.push_back("/dev/shm/" + name);
        }
        ASSERT_EQ(objects.size(), 2u);
    }

    // Attacks without a pause until it is told to end.
    std::unique_ptr<ForkedChild> begin(const Attack& attack) {
        return asNobody([this, attack] {
            bool isAllowed = true;
            while (!progress->isOver && isAllowed) {
                for (const std::string& object : objects) {
                    isAllowed = isAllowed && attack(object);
                }
                ++progress->attacks;
            }
            return isAllowed ? 0 : 1;
        });
    }

    // Both values are changed in turn and read by others; what is acknowledged counts.
    void workOnce(std::uint32_t number) {
        if (vqtest::setNumber(*session, "A", number) == REGLIB_OK) {
            a = number;
        }
        if (agent.set(".", "B", number) == REGLIB_OK) {
            b = number;
        }
        EXPECT_GE(vqtest::numberOf(*session, "B"), 0) << "a read is refused";
        EXPECT_EQ(agent.get(".", "A").code, REGLIB_OK) << "a read is refused";
        EXPECT_EQ(other.get(".", "A").code, REGLIB_OK) << "a read is refused";
    }

    // Who has lost touch with the others finds them again within seconds.
    void expectAllThere() {
        EXPECT_TRUE(vqtest::waitUntil([this] {
            return vqtest::numberOf(*session, "B") == b && other.get(".", "B").dword() == b &&
                   agent.get(".", "A").dword() == a && other.get(".", "A").dword() == a;
        })) << "A was "
            << a << ", B was " << b << ", and now\n"
            << store.read();
        ASSERT_EQ(agent.set(".", "B", ++b), REGLIB_OK);
        EXPECT_TRUE(vqtest::waitUntil([this] { return vqtest::numberOf(*session, "B") == b; }));
        ASSERT_EQ(vqtest::setNumber(*session, "A", ++a), REGLIB_OK);
        EXPECT_TRUE(vqtest::waitUntil([this] { return other.get(".", "A").dword() == a; }));
        Agent late(VQREG_AGENT_PATH);
        ASSERT_EQ(late.open(store.path()), REGLIB_OK);
        EXPECT_EQ(late.get(".", "A").dword(), a);
        EXPECT_EQ(late.get(".", "B").dword(), b);
        ASSERT_EQ(late.set(".", "A", ++a), REGLIB_OK);
        EXPECT_TRUE(vqtest::waitUntil([this] {
            return vqtest::numberOf(*session, "A") == a && agent.get(".", "A").dword() == a;
        })) << "who comes later has a world of its own";
        ASSERT_EQ(agent.set(".", "B", ++b), REGLIB_OK);
        EXPECT_TRUE(vqtest::waitUntil([&] { return late.get(".", "B").dword() == b; }));
    }

    void workUnder(const Attack& attack) {
        const auto attacker = begin(attack);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        std::uint32_t changes = 0;
        while ((changes < kChanges || progress->attacks < kAttacks) && !HasFailure()) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "hardly anything goes on";
            workOnce(++changes);
        }
        progress->isOver = true;
        EXPECT_EQ(attacker->wait(), 0) << "the attack was refused";
        expectAllThere();
    }

    TempStore store;
    Common<Progress> progress;
    Agent agent{VQREG_AGENT_PATH};
    Agent other{VQREG_AGENT_PATH};
    std::unique_ptr<CRegLib> session;
    std::vector<std::string> objects;
    std::uint32_t a = 0;  // as last acknowledged
    std::uint32_t b = 0;
};

}  // namespace

TEST_F(AttackedStore, GoesOnWhileItsObjectsAreCutToNothing) {
    workUnder(cut);
}

TEST_F(AttackedStore, GoesOnWhileItsObjectsAreFilledWithGarbage) {
    workUnder(fillWithGarbage);
}

TEST_F(AttackedStore, GoesOnWhileItsObjectsAreGiants) {
    workUnder(makeGiant);
}

TEST_F(AttackedStore, GoesOnWhileItsObjectsAreGiantsOfNothing) {
    workUnder(makeGiantOfNothing);
}

TEST_F(AttackedStore, GoesOnWhileItsStampIsScribbledUpon) {
    workUnder(scribbleStamps);
}

namespace {

// Holds the lock of an object of the store, after `before`, until the child is killed.
int holdLock(const std::string& path, Common<std::atomic<int>>& isHeld, const Attack& before) {
    const int fd = openObject(path);
    if (::flock(fd, LOCK_EX) != 0 || !before(path)) {
        *isHeld = -1;
        return 1;
    }
    *isHeld = 1;
    for (;;) {
        ::pause();
    }
}

bool leaveAlone(const std::string&) {
    return true;
}

// As a writer leaves it that has been stopped in the middle.
Attack leaveOddStamp(const std::string& block) {
    return [block](const std::string&) {
        std::atomic<std::uint64_t>* const stamp = attachStamp(block);
        return stamp && ((*stamp |= 1) & 1) != 0;
    };
}

class HeldLock : public AttackedStore {
protected:
    // The objects' names are sorted.
    const std::string& block() const { return objects.front(); }
    const std::string& lock() const { return objects.back(); }

    // Reads are answered and changes wait, until the holder lets go.
    void expectOnlyChangesWait(const Attack& before) {
        Common<std::atomic<int>> isHeld;
        const auto holder = asNobody([&] { return holdLock(lock(), isHeld, before); });
        ASSERT_TRUE(vqtest::waitUntil([&] { return *isHeld != 0; }));
        ASSERT_EQ(*isHeld, 1);
        agent.tell({"setd", ".", "B", "7"});
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(other.get(".", "B").dword(), 0u);
            ASSERT_EQ(other.enumValues(".").names.size(), 2u);
            ASSERT_EQ(vqtest::numberOf(*session, "A"), 0);
            ASSERT_EQ(vqtest::setNumber(*session, "A", 0), REGLIB_OK) << "it changes nothing";
        }
        Agent late(VQREG_AGENT_PATH);
        ASSERT_EQ(late.open(store.path()), REGLIB_OK);
        EXPECT_EQ(late.get(".", "B").dword(), 0u);
        holder->kill();
        EXPECT_EQ(agent.answer().code, REGLIB_OK);
        b = 7;
        expectAllThere();
    }
};

}  // namespace

TEST_F(HeldLock, OfAnotherUserDelaysOnlyChanges) {
    expectOnlyChangesWait(leaveAlone);
}

TEST_F(HeldLock, WithTheMarkOfAWriterDelaysOnlyChanges) {
    expectOnlyChangesWait(leaveOddStamp(block()));
}

namespace {

// Puts something in the place of an object before anybody has opened the store.
class PlantedObject : public testing::Test {
protected:
    void SetUp() override {
        if (asNobody([] { return 0; })->wait() != 0) {
            GTEST_SKIP() << "a process may not become another user here";
        }
        // What the objects are called is known from the path; here it is looked up.
        ASSERT_NE(vqtest::openSession(store.path())->RootKey(), nullptr);
        for (const std::string& name : store.sharedObjects()) {
            m_objects.push_back("/dev/shm/" + name);
        }
        ASSERT_EQ(m_objects.size(), 2u);
        std::ofstream(victim) << kSecret;
        ASSERT_EQ(::chmod(victim.c_str(), 0600), 0);
    }

    static constexpr char kSecret[] = "nobody else's";

    // Each object in turn. Whoever opens the store then is told that it cannot be had, or has it.
    void expectAnswer(const Attack& plant) {
        for (const std::string& object : m_objects) {
            SCOPED_TRACE(object);
            for (const std::string& each : m_objects) {
                std::filesystem::remove_all(each);
            }
            ASSERT_EQ(asNobody([&] { return plant(object) ? 0 : 1; })->wait(), 0);
            expectOpeningEnds();
            EXPECT_EQ(vqtest::readFile(victim), kSecret);
            EXPECT_EQ(std::filesystem::status(victim).permissions(), std::filesystem::perms{0600});
            EXPECT_FALSE(std::filesystem::exists(store.directory() + "/planted"));
        }
        for (const std::string& object : m_objects) {
            std::filesystem::remove_all(object);
        }
        EXPECT_EQ(openAndSet(1), 0) << "with the thing gone, all is well";
    }

    TempStore store;
    const std::string victim = store.directory() + "/victim";

private:
    // 0 when the change was made, 1 when the store could not be had, 2 when it could not be changed.
    int openAndSet(unsigned long number) const {
        const pid_t parent = ::getpid();
        return ForkedChild([&] {
                   vqtest::endWithParent(parent, 30);
                   const auto session = vqtest::openSession(store.path());
                   if (!session->RootKey()) {
                       return 1;
                   }
                   return vqtest::setNumber(*session, "A", number) == REGLIB_OK ? 0 : 2;
               })
            .wait();
    }

    void expectOpeningEnds() const {
        const int first = openAndSet(1);
        EXPECT_TRUE(first >= 0 && first <= 2) << first;
        const int second = openAndSet(2);
        EXPECT_EQ(second, first) << "it depends on nothing else";
    }

    std::vector<std::string> m_objects;
};

}  // namespace

TEST_F(PlantedObject, ThatIsALinkIsNotFollowed) {
    expectAnswer(
        [this](const std::string& path) { return ::symlink(victim.c_str(), path.c_str()) == 0; });
}

TEST_F(PlantedObject, ThatIsALinkToNothingMakesNothing) {
    expectAnswer([target = store.directory() + "/planted"](const std::string& path) {
        return ::symlink(target.c_str(), path.c_str()) == 0;
    });
}

TEST_F(PlantedObject, ThatIsAFifoKeepsNobodyWaiting) {
    expectAnswer([](const std::string& path) { return ::mkfifo(path.c_str(), 0666) == 0; });
}

TEST_F(PlantedObject, ThatIsADirectoryKeepsNobodyWaiting) {
    expectAnswer([](const std::string& path) { return ::mkdir(path.c_str(), 0777) == 0; });
}

TEST_F(PlantedObject, ThatIsAFileOfGarbageKeepsNobodyWaiting) {
    expectAnswer([](const std::string& path) {
        std::ofstream(path) << "garbage";
        return ::chmod(path.c_str(), 0666) == 0 && fillWithGarbage(path);
    });
}

TEST_F(PlantedObject, ThatNobodyElseMayOpenKeepsNobodyWaiting) {
    expectAnswer([](const std::string& path) {
        std::ofstream(path) << "garbage";
        return ::chmod(path.c_str(), 0) == 0;
    });
}
