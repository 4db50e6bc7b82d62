// What a failing disk, an empty file or a missing one may not cost: the text and its backup.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>

#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"
#include "support/TraceLog.h"

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

TEST_F(OpenReplaceSafety, ATextWhoseCloseFailsTakesNobodysPlace) {
    setText(*store, root, "a", "x");
    FileOpsFake files;
    files.fail(FileCall::eClose, EIO);
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
    EXPECT_THAT(files.calls(),
                ElementsAre("createForWriting store.cfg+", "makeWritableForAll store.cfg", "write",
                            "close", "unlink store.cfg.bak", "link store.cfg store.cfg.bak",
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
