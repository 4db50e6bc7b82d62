// What is left when a process dies with the lock of a store in its hands.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>

#include "RegLib/file/FileStore.h"
#include "VQRegLib.h"
#include "support/ForkedChild.h"
#include "support/StoreFixture.h"
#include "support/TempStore.h"

namespace fs = std::filesystem;

using namespace VQRegLib;
using testing::ElementsAre;
using vqtest::TempStore;

namespace {

class LockRecovery : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(session.VQRegSetValue(*session.RootKey(), "Old", 1ul), REGLIB_OK);
        ASSERT_EQ(session.VQRegSetValue(*session.RootKey(), "Number", 2ul), REGLIB_OK);
    }

    // Has another process take the lock, do `work` and be killed.
    void dieWithLock(const std::function<void(const CFileStoreProbe&)>& work) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        vqtest::ForkedChild child([&]() -> int {
            CRegLibImplFile other(store.path().c_str(), nullptr, CRegLib::eLocationDefault,
                                  nullptr);
            other.Lock();
            work(CFileStoreProbe(other));
            [[maybe_unused]] const ssize_t told = ::write(ready[1], "", 1);
            for (;;) {
                ::pause();
            }
        });
        ::close(ready[1]);
        char byte = 'x';
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        EXPECT_EQ(child.kill(), -SIGKILL);
    }

    int query(const char* name, unsigned& number) {
        CRegLib::eDataType type = CRegLib::eNone;
        unsigned long size = sizeof number;
        return session.VQRegQueryValue(*session.RootKey(), name, type,
                                       reinterpret_cast<unsigned char*>(&number), &size);
    }

    TempStore store;
    CRegLib session{store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
};

}  // namespace

TEST_F(LockRecovery, TheLockIsHandedOn) {
    dieWithLock([](const CFileStoreProbe&) {});
    unsigned number = 0;
    EXPECT_EQ(query("Number", number), REGLIB_OK);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(session.VQRegSetValue(*session.RootKey(), "Number", 3ul), REGLIB_OK);
    dieWithLock([](const CFileStoreProbe&) {});
    EXPECT_EQ(session.VQRegSetValue(*session.RootKey(), "Number", 4ul), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n\"Number\"=dword:00000004\n\"Old\"=dword:00000001\n");
}

TEST_F(LockRecovery, ANewSessionGetsTheLock) {
    dieWithLock([](const CFileStoreProbe&) {});
    CRegLib next(store.path().c_str(), "Velquist", CRegLib::eLocationDefault, nullptr);
    ASSERT_NE(next.RootKey(), nullptr);
    EXPECT_EQ(next.VQRegSetValue(*next.RootKey(), "Number", 5ul), REGLIB_OK);
}

TEST_F(LockRecovery, AFileThatWasReplacedWithoutAWordIsRead) {
    dieWithLock([this](const CFileStoreProbe& probe) {
        probe.markReplacing();
        store.write("[Velquist]\n\"Number\"=dword:00000007\n");
    });
    unsigned number = 0;
    EXPECT_EQ(query("Number", number), REGLIB_OK);
    EXPECT_EQ(number, 7u);
}

TEST_F(LockRecovery, AFileThatIsMissingComesBackFromItsBackup) {
    dieWithLock([this](const CFileStoreProbe& probe) {
        probe.markReplacing();
        fs::remove(store.backupPath());
        fs::rename(store.path(), store.backupPath());
    });
    unsigned number = 0;
    EXPECT_EQ(query("Number", number), REGLIB_OK);
    EXPECT_EQ(number, 2u);
    EXPECT_EQ(store.read(), "[Velquist]\n\"Number\"=dword:00000002\n\"Old\"=dword:00000001\n");
}

TEST_F(LockRecovery, AnUnfinishedTemporaryFileChangesNothing) {
    dieWithLock([this](const CFileStoreProbe&) {
        fs::copy_file(store.path(), store.path() + "unfinished");
        fs::resize_file(store.path() + "unfinished", 15);
    });
    EXPECT_EQ(session.VQRegSetValue(*session.RootKey(), "Number", 3ul), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n\"Number\"=dword:00000003\n\"Old\"=dword:00000001\n");
    EXPECT_THAT(store.files(), ElementsAre("store.cfg", "store.cfg.bak", "store.cfgunfinished"));
}
