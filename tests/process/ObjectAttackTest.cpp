// What another user can do to processes through the objects that they share: everybody may write and
// lock these. He can keep others from changing a store for as long as he is at it, and no more.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/ObjectAttacks.h"
#include "support/TempStore.h"
#include "support/Wait.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::asNobody;
using vqtest::attachStamp;
using vqtest::Attack;
using vqtest::Common;
using vqtest::cut;
using vqtest::fillWithGarbage;
using vqtest::ForkedChild;
using vqtest::makeGiant;
using vqtest::makeGiantOfNothing;
using vqtest::openObject;
using vqtest::scribbleStamps;
using vqtest::TempStore;

namespace {

constexpr std::uint32_t kChanges = 150;
constexpr int kAttacks = 100;

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
