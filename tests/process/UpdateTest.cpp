// Updates: many changes, one write, all or nothing for everybody else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

using namespace VQRegLib;
using testing::ElementsAre;
using vqtest::Agent;
using vqtest::ForkedChild;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

constexpr char kEmptyStore[] = "[Velquist]\n";

class Update : public testing::Test {
protected:
    int set(const char* name, unsigned long number) {
        return session.VQRegSetValue(*session.RootKey(), name, number);
    }

    int query(const char* name, std::uint32_t& number) {
        CRegLib::eDataType type = CRegLib::eNone;
        unsigned char data[4] = {};
        unsigned long size = sizeof data;
        const int result = session.VQRegQueryValue(*session.RootKey(), name, type, data, &size);
        std::memcpy(&number, data, sizeof number);
        return result;
    }

    TempStore store;
    CRegLib session{store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
};

TEST_F(Update, LeavesTheFileAloneUntilItsEnd) {
    ASSERT_EQ(set("Before", 1), REGLIB_OK);
    const std::string before = store.read();
    const ino_t inode = store.inode();
    ASSERT_EQ(session.VQRegBeginUpdate(), REGLIB_OK);
    EXPECT_EQ(set("A", 1), REGLIB_OK);
    EXPECT_EQ(set("B", 2), REGLIB_OK);
    EXPECT_EQ(session.VQRegDeleteValue(*session.RootKey(), "Before"), REGLIB_OK);
    CRegKey key;
    EXPECT_EQ(session.VQRegCreateKey(nullptr, "Sub", key, 1), REGLIB_OK);
    EXPECT_EQ(store.inode(), inode);
    EXPECT_EQ(store.read(), before);
    ASSERT_EQ(session.VQRegEndUpdate(), REGLIB_OK);
    EXPECT_EQ(store.read(),
              "[Velquist]\n\"A\"=dword:00000001\n\"B\"=dword:00000002\n[Velquist/Sub]\n");
    EXPECT_EQ(store.readBackup(), before) << "more than one write";
}

TEST_F(Update, ItsOwnOperationsSeeTheChangesAtOnce) {
    const CRegUpdate update(session);
    ASSERT_EQ(update.result(), REGLIB_OK);
    ASSERT_EQ(set("A", 7), REGLIB_OK);
    std::uint32_t number = 0;
    EXPECT_EQ(query("a", number), REGLIB_OK);
    EXPECT_EQ(number, 7u);
}

TEST_F(Update, WithoutAChangeWritesNothing) {
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    const ino_t inode = store.inode();
    ASSERT_EQ(session.VQRegBeginUpdate(), REGLIB_OK);
    EXPECT_EQ(set("A", 1), REGLIB_OK);
    EXPECT_EQ(session.VQRegEndUpdate(), REGLIB_OK);
    EXPECT_EQ(store.inode(), inode);
}

TEST_F(Update, NestsAndTheOutermostEndWrites) {
    CRegUpdate outer(session);
    {
        CRegUpdate inner(session);
        ASSERT_EQ(set("A", 1), REGLIB_OK);
        EXPECT_EQ(inner.end(), REGLIB_OK);
    }
    EXPECT_EQ(store.read(), kEmptyStore);
    EXPECT_EQ(outer.end(), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000001\n");
}

TEST_F(Update, EndingOneThatWasNotBegunFails) {
    EXPECT_EQ(session.VQRegEndUpdate(), REGLIB_E_FAIL);
    {
        CRegUpdate update(session);
        EXPECT_EQ(update.end(), REGLIB_OK);
        EXPECT_EQ(update.end(), REGLIB_OK) << "a second end of the object does nothing";
    }
    EXPECT_EQ(session.VQRegEndUpdate(), REGLIB_E_FAIL);
    EXPECT_EQ(set("A", 1), REGLIB_OK) << "the locks are where they were";
}

TEST_F(Update, WithoutAStoreDoesNotBegin) {
    CRegLib none("/no/such/directory/a.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_EQ(none.VQRegBeginUpdate(), REGLIB_E_NOT_INITIALIZED);
    EXPECT_EQ(none.VQRegEndUpdate(), REGLIB_E_NOT_INITIALIZED);
}

TEST_F(Update, OfAMalformedFileDoesNotBeginAndKeepsNoLock) {
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    ASSERT_EQ(agent.set(".", "A", 1), REGLIB_OK);
    store.write("no line\n");
    EXPECT_EQ(session.VQRegBeginUpdate(), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(session.VQRegEndUpdate(), REGLIB_E_FAIL);
    EXPECT_EQ(agent.set(".", "A", 2), REGLIB_OK) << "it has read what it wrote itself";
}

TEST_F(Update, OthersSeeAllOfItOrNothing) {
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    const auto expectBoth = [&](std::uint32_t number, const char* when) {
        EXPECT_EQ(agent.get(".", "A"), vqtest::Value::ofDword(number)) << when;
        EXPECT_EQ(agent.get(".", "B"), vqtest::Value::ofDword(number)) << when;
    };
    ASSERT_EQ(set("A", 0), REGLIB_OK);
    ASSERT_EQ(set("B", 0), REGLIB_OK);
    for (std::uint32_t round = 1; round <= 20; ++round) {
        CRegUpdate update(session);
        ASSERT_EQ(set("A", round), REGLIB_OK);
        expectBoth(round - 1, "within the update, which does not keep them waiting");
        ASSERT_EQ(set("B", round), REGLIB_OK);
        expectBoth(round - 1, "before its end");
        ASSERT_EQ(update.end(), REGLIB_OK);
        expectBoth(round, "after its end");
    }
}

TEST_F(Update, KeepsOtherThreadsOfTheProcessOut) {
    std::atomic<bool> ended{false};
    std::atomic<bool> tooEarly{false};
    ASSERT_EQ(session.VQRegBeginUpdate(), REGLIB_OK);
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    std::thread other([&] {
        EXPECT_EQ(session.VQRegEndUpdate(), REGLIB_E_FAIL) << "another thread's update";
        tooEarly = !ended;
        EXPECT_EQ(set("B", 1), REGLIB_OK);
    });
    ASSERT_EQ(set("C", 1), REGLIB_OK);
    ended = true;
    ASSERT_EQ(session.VQRegEndUpdate(), REGLIB_OK);
    other.join();
    EXPECT_FALSE(tooEarly);
}

TEST_F(Update, OfAProcessThatDiesChangesNothing) {
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    const std::string before = store.read();
    vqtest::Common<std::atomic<int>> began;
    ForkedChild child([&] {
        CRegLib own(store.path().c_str(), "Other", CRegLib::eLocationDefault, nullptr);
        const bool begun =
            own.VQRegBeginUpdate() >= 0 && own.VQRegSetValue(*own.RootKey(), "A", 2ul) >= 0;
        *began = begun ? 1 : -1;
        for (;;) {
            pause();
        }
        return 0;
    });
    ASSERT_TRUE(vqtest::waitUntil([&] { return *began != 0; }));
    ASSERT_EQ(*began, 1);
    EXPECT_EQ(child.kill(), -SIGKILL);
    std::uint32_t number = 0;
    EXPECT_EQ(query("A", number), REGLIB_OK);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(store.read().find("\"A\"=dword:00000002"), std::string::npos);
    EXPECT_EQ(set("B", 1), REGLIB_OK) << "the lock passed on";
    EXPECT_NE(before, store.read());
}

TEST_F(Update, OfAHundredThousandValuesIsOneWrite) {
    const ino_t inode = store.inode();
    {
        CRegUpdate update(session);
        for (int i = 0; i < 100'000; ++i) {
            ASSERT_EQ(set(("Value" + std::to_string(i)).c_str(), 1), REGLIB_OK);
        }
        EXPECT_EQ(store.inode(), inode);
    }
    EXPECT_EQ(store.readBackup(), kEmptyStore);
    const std::string text = store.read();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 100'001);
}

TEST_F(Update, ThatCannotBeWrittenEndsAllTheSame) {
    const std::string directory = store.directory();
    ASSERT_EQ(mount(directory.c_str(), directory.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, directory.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr),
              0);
    CRegUpdate update(session);
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    EXPECT_EQ(update.end(), REGLIB_E_FILE_OPEN);
    ASSERT_EQ(umount2(directory.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(store.read(), kEmptyStore);
    EXPECT_EQ(session.VQRegEndUpdate(), REGLIB_E_FAIL);
    EXPECT_EQ(set("B", 2), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000001\n\"B\"=dword:00000002\n")
        << "the change waited in memory";
}

// Its end would write what it has in memory over a text that it has never read.
TEST_F(Update, ThatCannotReadWhatOthersHaveWrittenDoesNotBegin) {
    CRegLib other(store.path().c_str(), "Other", CRegLib::eLocationDefault, nullptr);
    ASSERT_EQ(other.VQRegSetValue(*other.RootKey(), "A", "precious"), REGLIB_OK);
    const std::string away = store.directory() + ".away";
    ASSERT_EQ(std::rename(store.directory().c_str(), away.c_str()), 0);
    CRegUpdate update(session);
    EXPECT_EQ(update.result(), REGLIB_E_FILE_OPEN);
    set("B", 1);
    ASSERT_EQ(std::rename(away.c_str(), store.directory().c_str()), 0);
    update.end();
    EXPECT_EQ(set("C", 2), REGLIB_OK);
    EXPECT_EQ(store.read(),
              "[Other]\n\"A\"=string:precious\n"
              "[Velquist]\n\"B\"=dword:00000001\n\"C\"=dword:00000002\n");
}

// Closing a session takes locks in another order than an update has them, which is why the header
// forbids it; the thread sanitizer rightly says so.
#ifndef __SANITIZE_THREAD__
TEST_F(Update, ASessionClosedWithinOneWritesNothing) {
    {
        CRegLib own(store.path().c_str(), "Own", CRegLib::eLocationDefault, nullptr);
        ASSERT_EQ(own.VQRegBeginUpdate(), REGLIB_OK);
        ASSERT_EQ(own.VQRegSetValue(*own.RootKey(), "A", 1ul), REGLIB_OK);
    }
    EXPECT_EQ(store.read().find("\"A\""), std::string::npos);
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(store.path()), REGLIB_OK);
    EXPECT_EQ(agent.set(".", "B", 1), REGLIB_OK) << "the lock is free";
}
#endif

TEST(UpdateTrace, TellsOfItsBeginItsEndAndTheOneExport) {
    const TraceLog log(8);
    const TempStore store;
    CRegLib session(store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    const std::size_t before = log.texts(TraceLog::Addresses::eReplace).size();
    {
        CRegUpdate update(session);
        session.VQRegSetValue(*session.RootKey(), "A", 1ul);
    }
    std::vector<std::string> lines = log.texts(TraceLog::Addresses::eReplace);
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(lines,
                ElementsAre("CRegLib::VQRegBeginUpdate (0x@)", ">>>CRegLibImplFile::ImportConfig",
                            "CRegLib::VQRegSetValue (0x@), ValueName \"A\"",
                            ">>>CRegLibImplFile::ImportConfig", "CRegLib::VQRegEndUpdate (0x@)",
                            ">>>CRegLibImplFile::ExportConfig",
                            testing::StartsWith("CRegLibImplFile::FileOpen (0x@) \""),
                            "<<<CRegLibImplFile::ExportConfig"));
}

}  // namespace
