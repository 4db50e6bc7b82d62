// Changes that are on the disk when their caller is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"
#include "support/TraceLog.h"

using namespace vqtest;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class SyncedReplace : public StoreTest {
protected:
    SyncedReplace() { probe.setSynced(); }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
};

constexpr char kOneValue[] = "[Velquist]\n\"a\"=string:x\n";

}  // namespace

TEST_F(SyncedReplace, TheTextIsOnTheDiskBeforeItsNameAndTheNameBeforeTheAnswer) {
    const FileOpsFake files;
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_THAT(files.calls(),
                ElementsAre("createForWriting store.cfg+", "makeWritableForAll store.cfg", "write",
                            "syncData", "close", "unlink store.cfg.bak",
                            "link store.cfg store.cfg.bak", "rename store.cfg store.cfg.bak",
                            "rename store.cfg+ store.cfg", "syncNames store.cfg"));
    EXPECT_EQ(file.read(), kOneValue);
}

TEST_F(SyncedReplace, NamesAreExchangedBetweenTheTwo) {
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_THAT(files.calls(),
                ElementsAre("createForWriting store.cfg+", "makeWritableForAll store.cfg", "write",
                            "syncData", "close", "unlink store.cfg.bak",
                            "link store.cfg store.cfg.bak", "exchange store.cfg+ store.cfg",
                            "rename store.cfg+ store.cfg.bak", "syncNames store.cfg"));
}

// Two renames would leave no path in between, which a power cut may make last.
TEST_F(SyncedReplace, WithoutLinksAndExchangesTheBackupIsACopy) {
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    files.fail(FileCall::eExchange, EINVAL);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_THAT(
        files.calls(),
        ElementsAre("createForWriting store.cfg+", "makeWritableForAll store.cfg", "write",
                    "syncData", "close", "unlink store.cfg.bak", "link store.cfg store.cfg.bak",
                    "exchange store.cfg+ store.cfg", "copySynced store.cfg store.cfg+.bak",
                    "rename store.cfg+.bak store.cfg.bak", "rename store.cfg+ store.cfg",
                    "syncNames store.cfg"));
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST_F(SyncedReplace, WhereTheCopyCannotBeMadeTheRenamesKeepTheOldText) {
    FileOpsFake files;
    for (const FileCall call : {FileCall::eLink, FileCall::eExchange, FileCall::eCopy}) {
        files.fail(call, ENOSPC);
    }
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

// What stands in the backup's place cannot be replaced; the text takes its own all the same.
TEST_F(SyncedReplace, ACopyThatCannotBecomeTheBackupIsNotLeftLyingAbout) {
    std::filesystem::remove(file.backupPath());
    std::filesystem::create_directory(file.backupPath());
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    files.fail(FileCall::eExchange, EINVAL);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_THAT(files.calls(), Contains("rename store.cfg+.bak store.cfg.bak"));
    EXPECT_THAT(files.calls(), Contains("unlink store.cfg+.bak"));
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST_F(SyncedReplace, WithoutMemoryForACopyTheRenamesKeepTheOldText) {
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    files.fail(FileCall::eExchange, EINVAL);
    files.throwNoMemory(FileCall::eCopy);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST_F(SyncedReplace, ATextThatDoesNotReachTheDiskTakesNobodysPlace) {
    setText(*store, root, "a", "x");
    const std::string backup = file.readBackup();
    const std::uint64_t stamp = probe.sharedStamp();
    FileOpsFake files;
    files.fail(FileCall::eSyncData, EIO);
    EXPECT_EQ(setText(*store, root, "b", "y"), REGLIB_E_FILE_OPEN);
    EXPECT_THAT(files.calls(), Not(Contains(StartsWith("rename"))));
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_EQ(file.readBackup(), backup);
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
    EXPECT_EQ(probe.sharedStamp(), stamp);
    EXPECT_FALSE(probe.isFileOpen());
    EXPECT_FALSE(probe.isLocked());
    files.heal();
    EXPECT_EQ(setText(*store, root, "c", "z"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n\"b\"=string:y\n\"c\"=string:z\n");
}

// It has taken place, and everybody sees it; but nobody may be told that it lasts.
TEST_F(SyncedReplace, ANameThatDoesNotReachTheDiskFailsTheChangeThatIsInPlace) {
    const auto other = open("Velquist");
    FileOpsFake files;
    files.fail(FileCall::eSyncNames, EIO);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_EQ(get(*other, *other->RootKey(), "a"), Value::ofText("x"));
    EXPECT_FALSE(probe.isLocked());
    EXPECT_EQ(probe.localStamp(), probe.sharedStamp());
}

TEST_F(SyncedReplace, AnErrorLineSaysWhichOfTheTwoDidNotReachTheDisk) {
    const TraceLog log(1);
    CRegLibTrace::m_lFakeMutex = 0;
    open();  // and with it the trace
    FileOpsFake files;
    files.fail(FileCall::eSyncData, EIO);
    setText(*store, root, "a", "x");
    files.heal();
    files.fail(FileCall::eSyncNames, EROFS);
    setText(*store, root, "b", "x");
    EXPECT_THAT(log.texts(),
                Contains(HasSubstr("the text cannot be brought to the disk, errno 5")));
    EXPECT_THAT(log.texts(),
                Contains(HasSubstr("the directory cannot be brought to the disk, errno 30")));
}

TEST_F(SyncedReplace, AFileThatWasRemovedComesBackOnTheDisk) {
    std::filesystem::remove(file.path());
    probe.moveStamp();
    const FileOpsFake files;
    get(*store, root, "a");
    EXPECT_EQ(files.count(FileCall::eSyncData), 1);
    EXPECT_EQ(files.count(FileCall::eSyncNames), 1);
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(SyncedReplace, AnUpdateWaitsOnce) {
    const FileOpsFake files;
    EXPECT_EQ(store->VQRegBeginUpdate(), REGLIB_OK);
    setText(*store, root, "a", "x");
    setText(*store, root, "b", "y");
    EXPECT_EQ(store->VQRegEndUpdate(), REGLIB_OK);
    EXPECT_EQ(files.count(FileCall::eSyncData), 1);
    EXPECT_EQ(files.count(FileCall::eSyncNames), 1);
}

TEST_F(SyncedReplace, WhoOnlyReadsDoesNotWaitForTheDisk) {
    setText(*store, root, "a", "x");
    probe.moveStamp();
    const FileOpsFake files;
    get(*store, root, "a");
    setText(*store, root, "a", "x");
    EXPECT_EQ(files.count(FileCall::eSyncData), 0);
    EXPECT_EQ(files.count(FileCall::eSyncNames), 0);
}
