// The file and its backup around every change, and changes that cannot be written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ObjectAttacks.h"
#include "support/OtherUser.h"
#include "support/Sessions.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::HasSubstr;
using vqtest::Agent;
using vqtest::TempStore;
using vqtest::Value;

namespace {

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777u;
}

Agent::Options underUmask(const std::string& mask) {
    return {.program = "/bin/sh",
            .arguments = {"-c", "umask " + mask + "; exec \"$0\"", VQREG_AGENT_PATH}};
}

class FileReplacement : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
        ASSERT_EQ(agent.set(".", "Value", 1u), REGLIB_OK);
    }

    // Expects that a change replaces the file and keeps its old content as the backup.
    void expectBackup(const std::string& what, const std::function<int()>& change) {
        const std::string before = store.read();
        EXPECT_EQ(change(), REGLIB_OK) << what;
        EXPECT_NE(store.read(), before) << what;
        EXPECT_EQ(store.readBackup(), before) << what;
        EXPECT_THAT(store.files(), ElementsAre("store.cfg", "store.cfg.bak")) << what;
    }

    TempStore store;
    Agent agent{VQREG_AGENT_PATH};
};

// A file system of its own for the store.
class MountedStore : public testing::Test {
protected:
    void mountRoom(const char* options) {
        ASSERT_EQ(::mount("tmpfs", store.directory().c_str(), "tmpfs", 0, options), 0);
    }

    void TearDown() override { ::umount2(store.directory().c_str(), MNT_DETACH); }

    TempStore store;
    Agent agent{VQREG_AGENT_PATH};
    Agent other{VQREG_AGENT_PATH};
};

}  // namespace

TEST_F(FileReplacement, TheBackupIsTheContentBeforeTheLastChange) {
    expectBackup("create a key", [&] { return agent.create("A/B"); });
    expectBackup("new number", [&] { return agent.set("A", "Number", 1u); });
    expectBackup("other number", [&] { return agent.set("A", "Number", 2u); });
    expectBackup("other type", [&] { return agent.set("A", "Number", "text"); });
    expectBackup("bytes", [&] { return agent.setBinary("A", "Bytes", "x"); });
    expectBackup("delete a value", [&] { return agent.deleteValue("A", "Bytes"); });
    expectBackup("delete a key", [&] { return agent.deleteKey("A/B"); });
}

TEST_F(FileReplacement, NothingIsWrittenWithoutAChange) {
    ASSERT_EQ(agent.create("A"), REGLIB_OK);
    const ino_t inode = store.inode();
    const std::string backup = store.readBackup();
    EXPECT_EQ(agent.set(".", "Value", 1u), REGLIB_OK);
    EXPECT_EQ(agent.set(".", "VALUE", 1u), REGLIB_OK);
    EXPECT_EQ(agent.create("a"), REGLIB_OK);
    EXPECT_EQ(agent.openKey("none"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(agent.deleteValue(".", "none"), REGLIB_E_NOT_FOUND);
    EXPECT_EQ(agent.deleteKey("none"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(agent.get(".", "Value"), Value::ofDword(1));
    EXPECT_EQ(store.inode(), inode);
    EXPECT_EQ(store.readBackup(), backup);
}

TEST_F(FileReplacement, AMissingFileIsMadeAgainFromTheTree) {
    ASSERT_EQ(::remove(store.path().c_str()), 0);
    EXPECT_EQ(agent.get(".", "Value"), Value::ofDword(1));
    EXPECT_FALSE(store.exists());
    Agent other(VQREG_AGENT_PATH);
    ASSERT_EQ(other.open(store.path()), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n");
    EXPECT_EQ(agent.set(".", "New", 2u), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n\"New\"=dword:00000002\n\"Value\"=dword:00000001\n");
    EXPECT_EQ(other.get(".", "Value"), Value::ofDword(1));
}

TEST_F(FileReplacement, ALeftOverTemporaryFileIsNeitherReadNorRemoved) {
    std::ofstream(store.path() + "0123") << "[Left";
    EXPECT_EQ(agent.set(".", "Value", 2u), REGLIB_OK);
    EXPECT_THAT(store.files(), ElementsAre("store.cfg", "store.cfg.bak", "store.cfg0123"));
}

TEST(FileMode, BecomesEverybodysAtTheNextOpen) {
    const TempStore store;
    Agent narrow(underUmask("077"));
    ASSERT_EQ(narrow.open(store.path()), REGLIB_OK);
    ASSERT_EQ(narrow.set(".", "Value", 1u), REGLIB_OK);
    EXPECT_EQ(modeOf(store.path()), 0600u);
    Agent reader(VQREG_AGENT_PATH);
    ASSERT_EQ(reader.open(store.path()), REGLIB_OK);
    EXPECT_EQ(modeOf(store.path()), 0666u);
    ASSERT_EQ(narrow.set(".", "Value", 2u), REGLIB_OK);
    EXPECT_EQ(modeOf(store.path()), 0600u);
    EXPECT_EQ(modeOf(store.backupPath()), 0666u);
    EXPECT_EQ(reader.get(".", "Value"), Value::ofDword(2));
    EXPECT_EQ(modeOf(store.path()), 0666u);
}

TEST(FileMode, AllowsWhatTheUmaskAllows) {
    const TempStore store;
    Agent wide(underUmask("0"));
    ASSERT_EQ(wide.open(store.path()), REGLIB_OK);
    EXPECT_EQ(modeOf(store.path()), 0666u);
    for (const std::string& name : store.sharedObjects()) {
        EXPECT_EQ(modeOf("/dev/shm/" + name), 0666u) << name;
    }
}

TEST(OtherUsers, ShareTheStoreOfANarrowUmask) {
    if (!vqtest::mayRunAsAnother(VQREG_AGENT_PATH)) {
        GTEST_SKIP() << "no program can be run as another user here";
    }
    const TempStore store;
    ASSERT_EQ(::chmod(store.directory().c_str(), 0777), 0);
    Agent owner(underUmask("077"));
    ASSERT_EQ(owner.open(store.path()), REGLIB_OK);
    ASSERT_EQ(owner.set(".", "Value", 1u), REGLIB_OK);
    for (const std::string& name : store.sharedObjects()) {
        EXPECT_EQ(modeOf("/dev/shm/" + name), 0666u) << name;
    }
    Agent reader(VQREG_AGENT_PATH);  // its open gives the file to everybody
    ASSERT_EQ(reader.open(store.path()), REGLIB_OK);
    Agent other({.program = vqtest::kAsAnother, .arguments = vqtest::asAnother(VQREG_AGENT_PATH)});
    ASSERT_EQ(other.open(store.path()), REGLIB_OK);
    EXPECT_EQ(other.get(".", "Value"), Value::ofDword(1));
    EXPECT_EQ(other.set(".", "Value", 2u), REGLIB_OK);
    EXPECT_EQ(owner.get(".", "Value"), Value::ofDword(2));
    EXPECT_EQ(owner.set(".", "Value", 3u), REGLIB_OK);
    EXPECT_EQ(reader.get(".", "Value"), Value::ofDword(3));
    EXPECT_EQ(other.get(".", "Value"), Value::ofDword(3));
}

// Everybody may: its content is as much theirs.
TEST(OtherUsers, WriteIntoTheFileAndAreRead) {
    const TempStore store;
    ASSERT_EQ(::chmod(store.directory().c_str(), 0777), 0);
    const auto session = vqtest::openSession(store.path());
    ASSERT_EQ(vqtest::setNumber(*session, "A", 1), REGLIB_OK);
    ASSERT_EQ(session->VQRegReload(), REGLIB_OK);
    ASSERT_EQ(vqtest::numberOf(*session, "A"), 1) << "a reading, which opens the file to everybody";
    const int written = vqtest::asNobody([&] {
                            std::ofstream(store.path(), std::ios::app) << "\"B\"=dword:00000002\n";
                            return store.read().find("\"B\"") != std::string::npos ? 0 : 1;
                        })->wait();
    if (written == vqtest::kNoAttacker) {
        GTEST_SKIP() << "a process may not become another user here";
    }
    ASSERT_EQ(written, 0);
    EXPECT_EQ(vqtest::numberOf(*session, "B"), -1) << "nobody has told of it";
    EXPECT_EQ(session->VQRegReload(), REGLIB_OK);
    EXPECT_EQ(vqtest::numberOf(*session, "A"), 1);
    EXPECT_EQ(vqtest::numberOf(*session, "B"), 2);
}

// The kernel lets nobody link another user's file (fs.protected_hardlinks), so the names are
// exchanged.
TEST(OtherUsers, TakeTurnsAndThePathIsNeverAbsent) {
    if (!vqtest::mayRunAsAnother(VQREG_AGENT_PATH)) {
        GTEST_SKIP() << "no program can be run as another user here";
    }
    const TempStore store;
    ASSERT_EQ(::chmod(store.directory().c_str(), 0777), 0);
    const auto agentOf = [](int user) {
        return Agent::Options{.program = vqtest::kAsAnother,
                              .arguments = vqtest::asAnother(VQREG_AGENT_PATH, user)};
    };
    Agent one(agentOf(vqtest::kNobody));
    Agent two(agentOf(vqtest::kNameless));
    ASSERT_EQ(one.open(store.path()), REGLIB_OK);
    ASSERT_EQ(two.open(store.path()), REGLIB_OK);
    std::atomic<bool> isOver{false};
    std::atomic<int> absences{0};
    std::thread looking([&] {
        while (!isOver) {
            absences += store.exists() ? 0 : 1;
        }
    });
    std::string before = store.read();
    for (std::uint32_t number = 1; number <= 200; ++number) {
        EXPECT_EQ((number % 2 != 0 ? one : two).set(".", "Number", number), REGLIB_OK);
        EXPECT_EQ(store.readBackup(), before) << number;
        before = store.read();
    }
    isOver = true;
    looking.join();
    EXPECT_EQ(absences, 0);
    EXPECT_EQ(two.get(".", "Number"), Value::ofDword(200));
    EXPECT_THAT(store.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST(FileSizeLimit, KeepsNobodyElseFromTheOldText) {
    const TempStore store;
    Agent limited(
        {.program = "/bin/sh",
         .arguments = {"-c", "trap '' XFSZ; ulimit -f 2; exec \"$0\"", VQREG_AGENT_PATH}});
    Agent other(VQREG_AGENT_PATH);
    ASSERT_EQ(limited.open(store.path()), REGLIB_OK);
    ASSERT_EQ(limited.set(".", "Small", 1u), REGLIB_OK);
    ASSERT_EQ(other.open(store.path()), REGLIB_OK);
    const std::string before = store.read();
    const std::string backup = store.readBackup();
    EXPECT_EQ(limited.set(".", "Large", std::string(1900, 'x')), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(store.read(), before);
    EXPECT_EQ(store.readBackup(), backup);
    EXPECT_THAT(store.files(), ElementsAre("store.cfg", "store.cfg.bak"));
    EXPECT_EQ(other.get(".", "Small"), Value::ofDword(1));
    EXPECT_EQ(other.get(".", "Large"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_EQ(limited.set(".", "Large", "y"), REGLIB_OK);
    EXPECT_EQ(other.get(".", "Large"), Value::ofText("y"));
}

TEST_F(MountedStore, WithoutWritePermissionOnlyQueriesWork) {
    mountRoom("size=1m");
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    ASSERT_EQ(agent.set(".", "Value", 1u), REGLIB_OK);
    ASSERT_EQ(agent.create("Empty"), REGLIB_OK);
    const std::string before = store.read();
    ASSERT_EQ(::mount(nullptr, store.directory().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr),
              0);
    ASSERT_EQ(other.open(store.path()), REGLIB_OK);
    EXPECT_EQ(other.get(".", "Value"), Value::ofDword(1));
    EXPECT_EQ(agent.set(".", "Value", 2u), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(agent.set(".", "Text", "x"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(agent.setBinary(".", "Bytes", "x"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(agent.create("New"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(agent.deleteValue(".", "Text"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(agent.deleteKey("Empty"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(agent.set(".", "Value", 2u), REGLIB_OK);  // no change: nothing to write
    EXPECT_EQ(agent.get(".", "Value"), Value::ofDword(2));
    EXPECT_EQ(other.get(".", "Value"), Value::ofDword(1));
    EXPECT_EQ(store.read(), before);
    ASSERT_EQ(::mount(nullptr, store.directory().c_str(), nullptr, MS_REMOUNT, nullptr), 0);
    EXPECT_EQ(agent.set(".", "Last", 3u), REGLIB_OK);
    EXPECT_EQ(store.read(),
              "[Velquist]\n\"Bytes\"=binary:78\n\"Last\"=dword:00000003\n\"Value\"=dword:00000002\n"
              "[Velquist/New]\n");
    EXPECT_EQ(other.get(".", "Value"), Value::ofDword(2));
}

TEST_F(MountedStore, AMissingFileWithoutWritePermissionGivesNoStore) {
    mountRoom("size=1m");
    ASSERT_EQ(::mount(nullptr, store.directory().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr),
              0);
    EXPECT_EQ(agent.open(store.path()), REGLIB_E_NOT_INITIALIZED);
}

TEST_F(MountedStore, WithoutRoomNothingIsDamaged) {
    mountRoom("size=64k");
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    ASSERT_EQ(agent.set(".", "Value", 1u), REGLIB_OK);
    ASSERT_EQ(other.open(store.path()), REGLIB_OK);
    const std::string before = store.read();
    const std::string backup = store.readBackup();
    const std::string filler = store.directory() + "/filler";
    std::ofstream(filler) << std::string(100000, 'f') << std::flush;
    EXPECT_EQ(agent.set(".", "Value", 2u), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(agent.create("New"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(store.read(), before);
    EXPECT_EQ(store.readBackup(), backup);
    EXPECT_THAT(store.files(), ElementsAre("filler", "store.cfg", "store.cfg.bak"));
    EXPECT_EQ(agent.get(".", "Value"), Value::ofDword(2));
    EXPECT_EQ(other.get(".", "Value"), Value::ofDword(1));
    ASSERT_EQ(::remove(filler.c_str()), 0);
    EXPECT_EQ(agent.set(".", "Last", 3u), REGLIB_OK);
    EXPECT_EQ(store.read(),
              "[Velquist]\n\"Last\"=dword:00000003\n\"Value\"=dword:00000002\n[Velquist/New]\n");
    EXPECT_EQ(store.readBackup(), before);
    EXPECT_EQ(other.get(".", "Value"), Value::ofDword(2));
}
