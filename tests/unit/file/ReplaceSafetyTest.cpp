// What a failing disk, an empty file or a missing one may not cost: the text and its backup.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "portable/ObjectName.h"
#include "support/FileOpsFake.h"
#include "support/ForkedChild.h"
#include "support/StoreFixture.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

using namespace vqtest;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr char kOneValue[] = "[Velquist]\n\"a\"=string:x\n";
constexpr char kOld[] = "[Velquist]\n\"old\"=string:precious\n";

class ReplaceSafety : public StoreTest {
protected:
    void writeBackup(const std::string& text) const { std::ofstream(file.backupPath()) << text; }
};

/// A file system without links and exchanges, on which a new text cannot take the path's place.
class NewTextsStayAside : public FileOpsFake {
public:
    NewTextsStayAside() {
        fail(FileCall::eLink, EPERM);
        fail(FileCall::eExchange, EINVAL);
    }
    int rename(const char* path, const char* newPath) override {
        const bool isOld = std::string(newPath).ends_with(".bak");
        const bool isBack = std::string(path).ends_with(".bak");
        if (isOld || (isBack && m_mayComeBack)) {
            return FileOpsFake::rename(path, newPath);
        }
        errno = ENOSPC;
        return -1;
    }
    void refuseAll() { m_mayComeBack = false; }

private:
    bool m_mayComeBack = true;
};

class OpenReplaceSafety : public ReplaceSafety {
protected:
    // A change that cannot be written leaves everything as it was and goes out with the next one.
    void expectNothingReplaced(FileOpsFake& files) {
        const std::string text = file.read();
        const std::string backup = file.readBackup();
        const std::uint64_t stamp = probe.sharedStamp();
        int changed = 0;
        EXPECT_EQ(setText(*store, root, "b", "y", &changed), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(changed, 1);
        EXPECT_EQ(file.read(), text);
        EXPECT_EQ(file.readBackup(), backup);
        EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
        EXPECT_EQ(probe.sharedStamp(), stamp);
        EXPECT_EQ(probe.localStamp(), stamp);
        EXPECT_FALSE(probe.isFileOpen());
        EXPECT_FALSE(probe.isLocked());
        EXPECT_EQ(get(*store, root, "b"), Value::ofText("y"));
        files.heal();
        EXPECT_EQ(setText(*store, root, "c", "z"), REGLIB_OK);
        EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n\"b\"=string:y\n\"c\"=string:z\n");
        EXPECT_EQ(file.readBackup(), text);
    }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
};

}  // namespace

TEST_F(OpenReplaceSafety, ATextThatWasNotWrittenWholeTakesNobodysPlace) {
    setText(*store, root, "a", "x");
    FileOpsFake files;
    files.fail(FileCall::eWrite, EDQUOT);
    expectNothingReplaced(files);
}

namespace {

// Just before the new text takes the old one's place the lock's object is removed, and another process has
// a moment in which it could make a new one, read the old text and replace it.
class LockRemovingFileOps : public FileOpsFake {
public:
    LockRemovingFileOps(std::string path, std::function<int()> other)
        : m_path(std::move(path)), m_other(std::move(other)) {}
    int rename(const char* path, const char* newPath) override {
        if (!m_child) {
            std::filesystem::remove(VQRegLib::objectPath(VQRegLib::kLockKind, m_path));
            m_child = std::make_unique<ForkedChild>([this] {
                *m_hasEnded = m_other() == REGLIB_OK ? 1 : -1;
                return 0;
            });
            waitUntil([this] { return *m_hasEnded != 0; }, kMoment);
        }
        return FileOpsFake::rename(path, newPath);
    }
    int waitOther() {
        m_child->wait();
        return *m_hasEnded;
    }

private:
    static constexpr auto kMoment = std::chrono::milliseconds(300);
    const std::string m_path;
    const std::function<int()> m_other;
    Common<std::atomic<int>> m_hasEnded;
    std::unique_ptr<ForkedChild> m_child;
};

}  // namespace

TEST_F(OpenReplaceSafety, WhoMakesARemovedLockAnewWaitsForAReplacementUnderTheOldOne) {
    setText(*store, root, "a", "x");
    LockRemovingFileOps files(file.path(), [&] { return setText(*store, root, "b", "y"); });
    EXPECT_EQ(setText(*store, root, "c", "z"), REGLIB_OK);
    EXPECT_EQ(files.waitOther(), 1);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n\"b\"=string:y\n\"c\"=string:z\n");
    EXPECT_EQ(get(*store, root, "b"), Value::ofText("y"));
}

// Whoever has left the mark is dead, and the lock that he had has gone.
TEST_F(OpenReplaceSafety, AMarkOfADeadWriterBesideANewLockIsTakenAwayAfterAMoment) {
    setText(*store, root, "a", "x");
    std::filesystem::remove(VQRegLib::objectPath(VQRegLib::kLockKind, file.path()));
    probe.markReplacing();
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x")) << "a reader does not wait";
    EXPECT_NE(probe.sharedStamp() % 2, 0u) << "nor does it know that the writer is dead";
    EXPECT_EQ(setText(*store, root, "b", "y"), REGLIB_OK);
    EXPECT_EQ(probe.sharedStamp() % 2, 0u);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n\"b\"=string:y\n");
}

TEST_F(OpenReplaceSafety, ATextWhoseCloseFailsTakesNobodysPlace) {
    setText(*store, root, "a", "x");
    FileOpsFake files;
    files.fail(FileCall::eClose, EIO);
    expectNothingReplaced(files);
}

// Where the room for a text is looked for only when it is written to the disk.
TEST_F(OpenReplaceSafety, ATextThatDoesNotReachTheDiskTakesNobodysPlace) {
    setText(*store, root, "a", "x");
    FileOpsFake files;
    files.fail(FileCall::eSendOut, ENOSPC);
    expectNothingReplaced(files);
}

TEST_F(OpenReplaceSafety, AWriteThatFailsInTheMiddleOfALongTextIsNoticedInTheEnd) {
    setText(*store, root, "a", "x");
    const std::string text = file.read();
    FileOpsFake files;
    files.fail(FileCall::eWrite, ENOSPC);
    EXPECT_EQ(setText(*store, root, "long", std::string(600UL * 1024, 'x').c_str()),
              REGLIB_E_FILE_OPEN);
    EXPECT_EQ(file.read(), text);
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST_F(OpenReplaceSafety, WithoutLinksTheNamesAreExchangedAndThePathIsNeverAbsent) {
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_THAT(
        files.calls(),
        ElementsAre("createForWriting store.cfg+", "makeWritableForAll store.cfg", "write",
                    "sendOut", "close", "unlink store.cfg.bak", "link store.cfg store.cfg.bak",
                    "exchange store.cfg+ store.cfg", "rename store.cfg+ store.cfg.bak"));
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST_F(OpenReplaceSafety, AnOldTextThatCannotBecomeTheBackupIsNotLeftLyingAbout) {
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    files.fail(FileCall::eRename, EIO);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_THAT(file.files(), ElementsAre("store.cfg"));
}

TEST_F(OpenReplaceSafety, WithoutLinksAndExchangesTheRenamesDoItAlone) {
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    files.fail(FileCall::eExchange, EINVAL);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST_F(OpenReplaceSafety, WithoutLinksAndExchangesAnOldTextComesBackWhereTheNewOneCannotCome) {
    setText(*store, root, "a", "x");
    const NewTextsStayAside files;
    EXPECT_EQ(setText(*store, root, "a", "y"), REGLIB_OK);
    EXPECT_EQ(file.read(), kOneValue);
}

TEST_F(OpenReplaceSafety, AnOldTextThatCannotComeBackAtOnceIsBroughtBackByTheNextHolderOfTheLock) {
    setText(*store, root, "a", "x");
    {
        NewTextsStayAside files;
        files.refuseAll();
        EXPECT_EQ(setText(*store, root, "a", "y"), REGLIB_OK);
        EXPECT_FALSE(file.exists());
        EXPECT_EQ(file.readBackup(), kOneValue);
    }
    const auto other = open();
    EXPECT_EQ(get(*other, *other->RootKey(), "a"), Value::ofText("x"));
    EXPECT_EQ(file.read(), kOneValue);
}

// The first text of a store: there is no old one to come back.
TEST_F(OpenReplaceSafety, AFirstTextThatCannotComeDoesNotKeepTheStoreFromBeingMade) {
    store.reset();
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    std::remove(file.backupPath().c_str());
    {
        NewTextsStayAside files;
        files.refuseAll();
        try {
            open();
        } catch (const VQException&) {
            // whatever it says
        }
    }
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    files.fail(FileCall::eExchange, EINVAL);
    const auto other = open();
    EXPECT_EQ(setText(*other, *other->RootKey(), "a", "x"), REGLIB_OK);
    EXPECT_EQ(file.read(), kOneValue);
}

TEST_F(OpenReplaceSafety, AFileThatCannotBeLookedForDoesNotMakePlaceForItsBackup) {
    setText(*store, root, "a", "w");
    setText(*store, root, "a", "x");
    probe.markReplacing();
    FileOpsFake files;
    files.fail(FileCall::eExists, EIO);
    files.fail(FileCall::eLink, EIO);
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_EQ(file.read(), kOneValue);
}

TEST_F(OpenReplaceSafety, AFileThatWasRemovedDoesNotCostTheBackup) {
    setText(*store, root, "a", "x");
    setText(*store, root, "a", "y");
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    setText(*store, root, "b", "z");
    EXPECT_EQ(file.readBackup(), kOneValue);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:y\n\"b\"=string:z\n");
}

TEST_F(ReplaceSafety, AGoodBackupBesideAnEmptyFileSurvivesTheOpening) {
    file.write("");
    writeBackup(kOld);
    const auto store = open();
    EXPECT_EQ(file.read(), "[Velquist]\n");
    EXPECT_EQ(file.readBackup(), kOld);
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST_F(ReplaceSafety, AGoodBackupBesideAMissingFileSurvivesTheOpening) {
    writeBackup(kOld);
    const auto store = open();
    EXPECT_EQ(file.read(), "[Velquist]\n");
    EXPECT_EQ(file.readBackup(), kOld);
}

TEST_F(ReplaceSafety, AGoodBackupIsGivenUpForTheNextText) {
    writeBackup(kOld);
    const auto store = open();
    setText(*store, *store->RootKey(), "a", "x");
    EXPECT_EQ(file.readBackup(), kOld) << "there was no value yet";
    setText(*store, *store->RootKey(), "a", "y");
    EXPECT_EQ(file.readBackup(), kOneValue);
}

// What the opening of sessions makes is no text that a backup is given up for.
TEST_F(ReplaceSafety, AGoodBackupSurvivesTheOpeningOfKeys) {
    writeBackup(kOld);
    const auto store = open("First/Sub");
    CRegKey key;
    createKey(*store, "k/l", key);
    EXPECT_EQ(file.readBackup(), kOld);
    EXPECT_EQ(file.read(), "[First]\n[First/Sub]\n[First/Sub/k]\n[First/Sub/k/l]\n");
}

TEST_F(ReplaceSafety, ATextThatSomebodyElseWroteMeanwhileIsOneToGiveTheBackupUpFor) {
    writeBackup(kOld);
    const auto store = open();
    file.write(kOneValue);
    CRegKey key;
    createKey(*store, "k", key);
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/k]\n");
    EXPECT_EQ(file.readBackup(), kOneValue);
}

TEST_F(ReplaceSafety, AFileThatNeverHadAValueIsATextAsAnyOther) {
    file.write("[Velquist]\n");
    writeBackup(kOld);
    const auto store = open();
    setText(*store, *store->RootKey(), "a", "x");
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
}

TEST_F(ReplaceSafety, AFileWithoutValuesIsKeptWhereTheBackupHasNoneEither) {
    writeBackup("[Older]\n");
    file.write("[Velquist]\n");
    const auto store = open();
    setText(*store, *store->RootKey(), "a", "x");
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
}

TEST_F(ReplaceSafety, AnEmptyBackupComesAndGoes) {
    file.write("");
    writeBackup("");
    const auto store = open();
    EXPECT_EQ(file.readBackup(), "");
    setText(*store, *store->RootKey(), "a", "x");
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
}

TEST_F(ReplaceSafety, ALostTextWithAGoodBackupIsTold) {
    const TraceLog log(1);
    const std::string line =
        "(Error) CRegLibImplFile::ImportConfig (0x@), the file is missing or "
        "empty, its backup \"" +
        file.backupPath() + "\" is not";
    CRegLibTrace::m_lFakeMutex = 0;
    writeBackup(kOld);
    open();
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace), Contains(line).Times(1));
    file.write("");
    open();
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace), Contains(line).Times(2));
    open();
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace), Contains(line).Times(2));
}

// Somebody who does not take the lock, as an editor does not, puts it there after the look.
TEST_F(OpenReplaceSafety, AFileThatComesBackMeanwhileIsNotReplacedByItsBackup) {
    ASSERT_EQ(setText(*store, root, "a", "w"), REGLIB_OK);
    ASSERT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    const std::string backup = file.readBackup();
    probe.markReplacing();
    FileOpsFake files;
    files.fail(FileCall::eExists, ENOENT);
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_THAT(files.calls(), Contains("link store.cfg.bak store.cfg"));
    EXPECT_EQ(files.count(FileCall::eRename), 0);
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_EQ(file.readBackup(), backup);
}

// Where a file may not be linked, a file that a dead writer took away comes back by a rename.
TEST_F(OpenReplaceSafety, TheBackupComesBackWhereItCannotBeLinked) {
    ASSERT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    ASSERT_EQ(std::rename(file.path().c_str(), file.backupPath().c_str()), 0);
    probe.markReplacing();
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_EQ(file.read(), kOneValue);
    EXPECT_THAT(files.calls(), Contains("rename store.cfg.bak store.cfg")) << "not made anew";
    EXPECT_FALSE(probe.isLocked());
}
