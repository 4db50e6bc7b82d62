// The objects behind a store while programs use it: removed by an administrator, closed by the
// program itself, out of reach of a process without descriptors or in another namespace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ForkedChild.h"
#include "support/ObjectAttacks.h"
#include "support/TempStore.h"
#include "support/Wait.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::ForkedChild;
using vqtest::TempStore;
using vqtest::Value;
using vqtest::waitUntil;

namespace {

class LockObjects : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(one.open(store.path()), REGLIB_OK);
        ASSERT_EQ(two.open(store.path()), REGLIB_OK);
        ASSERT_EQ(one.set(".", "A", 1u), REGLIB_OK);
        ASSERT_EQ(two.get(".", "A"), Value::ofDword(1));
    }

    std::string object(const std::string& kind) const {
        return "/dev/shm/" + kind + "." + vqtest::encodedPath(store.path());
    }

    void remove(const std::string& kind) const {
        ASSERT_TRUE(std::filesystem::remove(object(kind)));
    }

    void moveAway(const std::string& kind) const {
        std::filesystem::rename(object(kind), object(kind) + kAway);
    }

    static bool hasOneThatIsAway(const Agent& agent) {
        const std::string files = "/proc/" + std::to_string(agent.pid()) + "/fd";
        for (const auto& entry : std::filesystem::directory_iterator(files)) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry, gone).string().ends_with(kAway)) {
                return true;
            }
        }
        return false;
    }

    // Of the lock's file, of the block's, and of the block.
    std::vector<std::string> words() const {
        std::string bytes =
            vqtest::readFile(object("CPLock")) + vqtest::readFile(object("CPBlock"));
        const auto* const stamp =
            reinterpret_cast<const char*>(vqtest::attachStamp(object("CPBlock")));
        bytes.append(stamp - kBeforeStamp, kBeforeStamp + sizeof(std::uint64_t));
        ::shmdt(stamp - kBeforeStamp);
        std::vector<std::string> result;
        for (std::size_t at = 0; at < bytes.size(); at += sizeof(std::uint64_t)) {
            result.push_back(bytes.substr(at, sizeof(std::uint64_t)));
        }
        return result;
    }

    // Whoever changes something finds the new objects at once, a reader within a second.
    void expectOneStoreAgain() {
        ASSERT_EQ(one.set(".", "A", 2u), REGLIB_OK);
        ASSERT_EQ(two.set(".", "B", 3u), REGLIB_OK);
        EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000002\n\"B\"=dword:00000003\n");
        EXPECT_TRUE(waitUntil([&] { return one.get(".", "B") == Value::ofDword(3); }));
        Agent fresh(VQREG_AGENT_PATH);
        ASSERT_EQ(fresh.open(store.path()), REGLIB_OK);
        ASSERT_EQ(fresh.set(".", "C", 4u), REGLIB_OK);
        for (Agent* const agent : {&one, &two}) {
            EXPECT_TRUE(waitUntil([&] { return agent->get(".", "C") == Value::ofDword(4); }));
        }
        ASSERT_EQ(one.set(".", "C", 5u), REGLIB_OK);
        EXPECT_TRUE(waitUntil([&] { return fresh.get(".", "C") == Value::ofDword(5); }));
        EXPECT_EQ(two.get(".", "C"), Value::ofDword(5)) << "all share one stamp again";
    }

    static constexpr char kAway[] = ".away";
    static constexpr std::size_t kBeforeStamp = 64;
    TempStore store;
    Agent one{VQREG_AGENT_PATH};
    Agent two{VQREG_AGENT_PATH};
};

// A session of the test process itself.
class OwnLock : public testing::Test {
protected:
    int set(CRegLib& of, const char* name, unsigned long number) {
        return of.VQRegSetValue(*of.RootKey(), name, number);
    }
    int set(const char* name, unsigned long number) { return set(session, name, number); }

    TempStore store;
    CRegLib session{store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
};

}  // namespace

TEST_F(LockObjects, RemovedBothAreMadeAgainAndNoChangeIsLost) {
    remove("CPLock");
    remove("CPBlock");
    expectOneStoreAgain();
}

TEST_F(LockObjects, ARemovedLockIsMadeAgainAndNoChangeIsLost) {
    remove("CPLock");
    expectOneStoreAgain();
}

TEST_F(LockObjects, ARemovedBlockIsMadeAgainAndNoChangeIsLost) {
    remove("CPBlock");
    expectOneStoreAgain();
}

// Unlike one that is removed, an object that is moved away keeps its name: it is looked for once a second.
TEST_F(LockObjects, MovedAwayTheyAreMissedWithinASecond) {
    moveAway("CPLock");
    moveAway("CPBlock");
    EXPECT_TRUE(hasOneThatIsAway(one));
    Agent fresh(VQREG_AGENT_PATH);
    ASSERT_EQ(fresh.open(store.path()), REGLIB_OK);
    ASSERT_EQ(fresh.set(".", "B", 2u), REGLIB_OK);
    for (Agent* const agent : {&one, &two}) {
        EXPECT_TRUE(waitUntil([&] { return agent->get(".", "B") == Value::ofDword(2); }));
    }
    ASSERT_EQ(one.set(".", "A", 3u), REGLIB_OK);
    ASSERT_EQ(two.set(".", "C", 4u), REGLIB_OK);
    EXPECT_FALSE(hasOneThatIsAway(one)) << "neither lock nor block";
    EXPECT_FALSE(hasOneThatIsAway(two));
    EXPECT_EQ(fresh.get(".", "A"), Value::ofDword(3)) << "all share one stamp again";
    EXPECT_EQ(fresh.get(".", "C"), Value::ofDword(4));
    EXPECT_EQ(store.read(),
              "[Velquist]\n\"A\"=dword:00000003\n\"B\"=dword:00000002\n\"C\"=dword:00000004\n");
}

// Stamp and number, which are one, move on with a change, whatever that is and whoever makes it.
TEST_F(LockObjects, TellWhoReadsThemNothingButThatTheFileHasChanged) {
    const std::vector<std::string> before = words();
    ASSERT_EQ(two.set(".", "Long", std::string(2000, 'x')), REGLIB_OK);
    const std::vector<std::string> after = words();
    ASSERT_EQ(after.size(), before.size());
    std::vector<std::string> moved;
    for (std::size_t at = 0; at < after.size(); ++at) {
        if (after[at] != before[at]) {
            moved.push_back(after[at]);
        }
    }
    ASSERT_EQ(moved.size(), 2u);
    EXPECT_EQ(moved[0], moved[1]);
}

TEST_F(OwnLock, WithoutADescriptorForItNothingIsChanged) {
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    ForkedChild child([&] {
        // A child has to open the lock anew.
        const rlimit none{0, 0};
        if (::setrlimit(RLIMIT_NOFILE, &none) != 0) {
            return 1;
        }
        CRegLib::eDataType type = CRegLib::eNone;
        unsigned char data[4] = {};
        unsigned long size = sizeof data;
        const bool isRefused =
            set("A", 2) == REGLIB_E_FILE_OPEN && session.VQRegBeginUpdate() == REGLIB_E_FILE_OPEN;
        const bool isSame =
            session.VQRegQueryValue(*session.RootKey(), "A", type, data, &size) == REGLIB_OK &&
            data[0] == 1;
        return isRefused && isSame && set("A", 1) == REGLIB_OK ? 0 : 2;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000001\n");
}

TEST_F(OwnLock, ClosedInAnUpdateItsEndWritesNothingOverOthers) {
    ForkedChild child([&] {
        CRegUpdate update(session);
        if (set("A", 1) != REGLIB_OK) {
            return 1;
        }
        ::closefrom(3);  // the lock goes with it
        ForkedChild stranger([&] { return set("B", 2) == REGLIB_OK ? 0 : 1; });
        if (stranger.wait() != 0) {
            return 2;
        }
        if (update.end() != REGLIB_E_FILE_OPEN) {
            return 3;
        }
        return set("C", 3) == REGLIB_OK ? 0 : 4;  // and the next one locks again
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(store.read(),
              "[Velquist]\n\"A\"=dword:00000001\n\"B\"=dword:00000002\n"
              "\"C\"=dword:00000003\n");
}

TEST_F(OwnLock, RemovedInAnUpdateItsEndWritesNothingOverOthers) {
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    CRegUpdate update(session);
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    ASSERT_TRUE(std::filesystem::remove("/dev/shm/CPLock." + vqtest::encodedPath(store.path())));
    ASSERT_EQ(agent.set(".", "B", 2u), REGLIB_OK) << "under a lock of its own";
    EXPECT_EQ(update.end(), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(store.read(), "[Velquist]\n\"B\"=dword:00000002\n");
    EXPECT_EQ(set("C", 3), REGLIB_OK);
    EXPECT_EQ(agent.get(".", "C"), Value::ofDword(3));
    EXPECT_EQ(agent.get(".", "A"), Value::ofDword(1)) << "it waited in memory";
}

TEST_F(OwnLock, ABlockThatIsReplacedInAnUpdateIsToldOfItsEnd) {
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    CRegUpdate update(session);
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    ASSERT_TRUE(std::filesystem::remove("/dev/shm/CPBlock." + vqtest::encodedPath(store.path())));
    Agent fresh(VQREG_AGENT_PATH);  // makes another block and reads the old text
    ASSERT_EQ(fresh.open(store.path()), REGLIB_OK);
    EXPECT_EQ(fresh.get(".", "A"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_EQ(update.end(), REGLIB_OK);
    EXPECT_EQ(fresh.get(".", "A"), Value::ofDword(1));
    EXPECT_EQ(fresh.set(".", "B", 2u), REGLIB_OK);
    EXPECT_TRUE(waitUntil([&] { return agent.get(".", "B") == Value::ofDword(2); }));
    EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000001\n\"B\"=dword:00000002\n");
}

TEST_F(OwnLock, AProgramThatClosesAllDescriptorsGoesOn) {
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    ForkedChild child([&] {
        ::closefrom(3);
        return set("A", 1) == REGLIB_OK && set("B", 2) == REGLIB_OK ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(agent.get(".", "B"), Value::ofDword(2));
}

TEST_F(OwnLock, AStoreInUseCannotBeOpenedInAnotherIpcNamespace) {
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    ForkedChild child([&] {
        if (::unshare(CLONE_NEWIPC) != 0) {
            return 100;
        }
        const CRegLib other(store.path().c_str(), "Other", CRegLib::eLocationDefault, nullptr);
        return other.RootKey() ? 1 : 0;
    });
    const int outcome = child.wait();
    if (outcome == 100) {
        GTEST_SKIP() << "no IPC namespaces can be made here";
    }
    EXPECT_EQ(outcome, 0);
    EXPECT_EQ(set("A", 2), REGLIB_OK);
}
