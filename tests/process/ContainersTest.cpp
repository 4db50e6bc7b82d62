// What containers must share for a store of theirs, and what becomes of one where they do not: as
// docs/containers.md has it.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ChildProcess.h"
#include "support/Results.h"
#include "support/TempStore.h"
#include "support/Wait.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::Value;

namespace {

// An agent outside, and places for others that see less of the machine than it does.
class Containers : public testing::Test {
protected:
    void SetUp() override {
        if (vqtest::ChildProcess("/usr/bin/unshare",
                                 {"--mount", "--ipc", "--pid", "--fork", "true"})
                .finish()
                .status != 0) {
            GTEST_SKIP() << "no namespaces can be made here";
        }
        ASSERT_EQ(outside.open(store.path()), REGLIB_OK);
        ASSERT_EQ(outside.set(".", "A", 1), REGLIB_OK);
    }

    // An agent in new namespaces, after some preparations there; $1 is the directory of the store.
    std::unique_ptr<Agent> agentIn(std::vector<std::string> namespaces,
                                   const std::string& preparation = ":",
                                   const std::string& command = "exec") const {
        const std::string script = "set -e; " + preparation + "; shift; " + command + " \"$@\"";
        namespaces.insert(namespaces.end(), {"--", "/bin/sh", "-c", script, "sh", store.directory(),
                                             VQREG_AGENT_PATH});
        return std::make_unique<Agent>(
            Agent::Options{.program = "/usr/bin/unshare", .arguments = std::move(namespaces)});
    }

    void expectShared(Agent& inside) {
        for (std::uint32_t number = 10; number < 30; ++number) {
            ASSERT_EQ(inside.set(".", "A", number), REGLIB_OK);
            ASSERT_EQ(outside.get(".", "A"), Value::ofDword(number));
            ASSERT_EQ(outside.set(".", "B", number), REGLIB_OK);
            ASSERT_EQ(inside.get(".", "B"), Value::ofDword(number));
        }
        constexpr std::uint32_t kTimes = 200;
        outside.tell({"stress", ".", "C", std::to_string(kTimes)});
        inside.tell({"stress", ".", "D", std::to_string(kTimes)});
        EXPECT_EQ(outside.answer().fields.at(0), "0");
        EXPECT_EQ(inside.answer().fields.at(0), "0");
        for (Agent* agent : {&outside, &inside}) {
            EXPECT_EQ(agent->get(".", "C"), Value::ofDword(kTimes));
            EXPECT_EQ(agent->get(".", "D"), Value::ofDword(kTimes));
        }
    }

    // Who has another stamp finds nothing changed, and writes what it has in memory over the change.
    void expectLosses(Agent& inside) {
        ASSERT_EQ(inside.get(".", "A"), Value::ofDword(1));
        ASSERT_EQ(outside.set(".", "A", 2), REGLIB_OK);
        EXPECT_EQ(inside.get(".", "A"), Value::ofDword(1));
        ASSERT_EQ(inside.set(".", "B", 3), REGLIB_OK);
        vqtest::Agent later(VQREG_AGENT_PATH);
        ASSERT_EQ(later.open(store.path()), REGLIB_OK);
        EXPECT_EQ(later.get(".", "A"), Value::ofDword(1));
    }

    vqtest::TempStore store;
    Agent outside{VQREG_AGENT_PATH};
};

}  // namespace

TEST_F(Containers, ShareAStoreWithNamespacesOfTheirOwnForAllElse) {
    const auto inside = agentIn({"--mount", "--pid", "--fork", "--net", "--uts"},
                                "mount -t proc proc /proc; mount -t tmpfs tmpfs /var");
    ASSERT_EQ(inside->open(store.path()), REGLIB_OK);
    expectShared(*inside);
}

TEST_F(Containers, ShareAStoreFromARootOfTheirOwn) {
    const auto inside = agentIn(
        {"--mount", "--pid", "--fork"},
        "root=$1.root; mkdir $root; mount -t tmpfs tmpfs $root\n"
        "mkdir $root/etc; cp /etc/ld.so.cache $root/etc || :\n"
        "for each in $1 /dev/shm /proc /usr /lib /lib32 /lib64 /bin \"${2%/*/*}\"; do\n"
        "    [ -d $each ] || continue; mkdir -p $root$each; mount --rbind $each $root$each\n"
        "done\n"
        "root() { chroot $root \"$@\"; }",
        "root");
    ASSERT_EQ(inside->open(store.path()), REGLIB_OK);
    expectShared(*inside);
    std::filesystem::remove(store.directory() + ".root");
}

TEST_F(Containers, HearOfChanges) {
    const auto inside = agentIn({"--mount", "--pid", "--fork"}, "mount -t proc proc /proc");
    ASSERT_EQ(inside->open(store.path()), REGLIB_OK);
    inside->watch();
    // The first look that it takes is the reference; two within a second may be one.
    EXPECT_TRUE(vqtest::waitUntil([&, number = 100U]() mutable {
        return outside.set(".", "A", ++number) == REGLIB_OK && outside.send() == REGLIB_OK &&
               inside->changes() > 0;
    }));
}

TEST_F(Containers, CannotOpenAStoreWithoutTheMemoryOfThoseWhoHaveItOpen) {
    const auto inside = agentIn({"--ipc"});
    EXPECT_NE(inside->open(store.path()), REGLIB_OK);
    // Nothing is lost by it, and who comes first has it.
    EXPECT_EQ(outside.set(".", "A", 2), REGLIB_OK);
    EXPECT_EQ(outside.close(), REGLIB_OK);
    EXPECT_EQ(inside->open(store.path()), REGLIB_OK);
    EXPECT_EQ(inside->get(".", "A"), Value::ofDword(2));
    EXPECT_NE(outside.open(store.path()), REGLIB_OK);
}

TEST_F(Containers, LoseChangesWithSharedMemoryOfTheirOwn) {
    const auto inside = agentIn({"--mount", "--ipc"}, "mount -t tmpfs tmpfs /dev/shm");
    ASSERT_EQ(inside->open(store.path()), REGLIB_OK);
    expectLosses(*inside);
}

TEST_F(Containers, LoseChangesWithNamesOfTheirOwnForCommonMemory) {
    const auto inside = agentIn({"--mount"}, "mount -t tmpfs tmpfs /dev/shm");
    ASSERT_EQ(inside->open(store.path()), REGLIB_OK);
    expectLosses(*inside);
}

TEST_F(Containers, LoseChangesWhereTheFileHasAnotherPath) {
    const std::string other = store.directory() + ".other";
    const auto inside = agentIn({"--mount"}, "mkdir $1.other; mount --bind $1 $1.other");
    ASSERT_EQ(inside->open(other + store.path().substr(store.directory().size())), REGLIB_OK);
    expectLosses(*inside);
    std::filesystem::remove(other);
}

// The call says nothing; docs/guarantees.md says why.
TEST_F(Containers, CannotChangeAFileThatIsAMountOfItsOwn) {
    const auto inside = agentIn({"--mount"}, "mount --bind $1/*.cfg $1/*.cfg");
    ASSERT_EQ(inside->open(store.path()), REGLIB_OK);
    ASSERT_EQ(inside->set(".", "A", 2), REGLIB_OK);
    EXPECT_EQ(outside.get(".", "A"), Value::ofDword(1));
}

TEST_F(Containers, ReadAStoreInADirectoryThatTheyMayNotWrite) {
    const auto inside = agentIn({"--mount"}, "mount --bind $1 $1; mount -o remount,bind,ro $1");
    ASSERT_EQ(inside->open(store.path()), REGLIB_OK);
    for (std::uint32_t number = 10; number < 20; ++number) {
        ASSERT_EQ(outside.set(".", "A", number), REGLIB_OK);
        EXPECT_EQ(inside->get(".", "A"), Value::ofDword(number));
    }
    EXPECT_EQ(inside->set(".", "A", 2), static_cast<int>(REGLIB_E_FILE_OPEN));
    EXPECT_EQ(outside.get(".", "A"), Value::ofDword(19));
}

// Of user and root there mean something else than outside: what counts is the mode 0666.
TEST_F(Containers, ShareAStoreWithUsersOfTheirOwn) {
    if (vqtest::ChildProcess("/usr/bin/unshare", {"--user", "true"}).finish().status != 0) {
        GTEST_SKIP() << "no namespaces of users can be made here";
    }
    const auto inside = agentIn({"--user", "--map-root-user"});
    ASSERT_EQ(inside->open(store.path()), REGLIB_OK);
    expectShared(*inside);
}
