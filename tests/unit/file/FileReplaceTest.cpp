// The cross-process lock, the change stamp, and how the file is opened and replaced.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>

#include "support/FileOpsFake.h"
#include "support/ForkedChild.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class FileReplace : public StoreTest {
protected:
    mode_t modeOf(const std::string& path) const {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777u;
    }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
};

}  // namespace

TEST_F(FileReplace, AChangeReplacesTheFileInOneOrder) {
    const FileOpsFake files;
    setText(*store, root, "a", "x");
    EXPECT_THAT(
        files.calls(),
        ElementsAre("createForWriting store.cfg+", "makeWritableForAll store.cfg", "write",
                    "sendOut", "close", "unlink store.cfg.bak", "link store.cfg store.cfg.bak",
                    "rename store.cfg store.cfg.bak", "rename store.cfg+ store.cfg"));
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST_F(FileReplace, AnImportOpensTheFileOnce) {
    const FileOpsFake files;
    probe.moveStamp();
    EXPECT_EQ(get(*store, root, "a"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_THAT(files.calls(), ElementsAre("openForReading store.cfg",
                                           "makeWritableForAll (opened)", "read", "close"));
    EXPECT_FALSE(probe.isFileOpen());
}

TEST_F(FileReplace, TheModeIsSetEvenWhenTheOpenFails) {
    FileOpsFake files;
    files.fail(FileCall::eCreateForWriting, EACCES);
    setText(*store, root, "a", "x");
    EXPECT_THAT(files.calls(),
                ElementsAre("createForWriting store.cfg+", "makeWritableForAll store.cfg"));
    files.clear();
    probe.moveStamp();
    files.fail(FileCall::eOpenForReading, EACCES);
    get(*store, root, "a");
    EXPECT_THAT(files.calls(),
                ElementsAre("openForReading store.cfg", "makeWritableForAll store.cfg"));
}

TEST_F(FileReplace, TheFailureIsThatOfTheOpenAndNotOfTheMode) {
    FileOpsFake files;
    files.fail(FileCall::eOpenForReading, EACCES);
    files.fail(FileCall::eMakeWritableForAll, ENOENT);
    probe.moveStamp();
    EXPECT_EQ(get(*store, root, "a"), Value::failure(REGLIB_E_FILE_OPEN));
}

TEST_F(FileReplace, AFileBecomesWritableForAllAtTheNextOpen) {
    const mode_t before = ::umask(077);
    setText(*store, root, "a", "x");
    EXPECT_EQ(modeOf(file.path()), 0600u);
    probe.moveStamp();
    get(*store, root, "a");
    EXPECT_EQ(modeOf(file.path()), 0666u);
    setText(*store, root, "a", "y");
    EXPECT_EQ(modeOf(file.path()), 0600u);
    EXPECT_EQ(modeOf(file.backupPath()), 0666u);
    ::umask(before);
}

TEST_F(FileReplace, OpeningTellsTheNameEvenWhenItFails) {
    FileOpsFake files;
    files.fail(FileCall::eOpenForReading, EACCES);
    files.fail(FileCall::eCreateForWriting, EACCES);
    std::string name;
    EXPECT_EQ(store->FileOpen(CRegLibImplFile::eRead, &name), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(name, file.path());
    EXPECT_EQ(store->FileOpen(CRegLibImplFile::eWrite, nullptr), REGLIB_E_FILE_OPEN)
        << "and nobody need ask for it";
    EXPECT_EQ(store->FileOpen(CRegLibImplFile::eWrite, &name), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(name.size(), file.path().size() + 36);
    EXPECT_EQ(name.substr(0, file.path().size()), file.path());
    files.fail(FileCall::eOpenForReading, ENOENT);
    EXPECT_EQ(store->FileOpen(CRegLibImplFile::eRead, nullptr), REGLIB_E_NOT_FOUND);
    EXPECT_FALSE(probe.isFileOpen());
}

TEST_F(FileReplace, EveryModeButReadingWrites) {
    for (const int mode : {1, 2, -1, 256}) {
        std::string name;
        ASSERT_EQ(store->FileOpen(mode, &name), REGLIB_OK) << mode;
        EXPECT_EQ(name.size(), file.path().size() + 36) << "a temporary file";
        std::ofstream(name) << mode;
        store->Lock();
        store->FileClose(mode, name);
        store->Unlock();
        EXPECT_EQ(file.read(), std::to_string(mode)) << "takes the file's place";
    }
}

TEST_F(FileReplace, EveryTemporaryFileHasANameOfItsOwn) {
    std::string first;
    std::string second;
    ASSERT_EQ(store->FileOpen(CRegLibImplFile::eWrite, &first), REGLIB_OK);
    store->FileClose(CRegLibImplFile::eRead, "");
    ASSERT_EQ(store->FileOpen(CRegLibImplFile::eWrite, &second), REGLIB_OK);
    store->FileClose(CRegLibImplFile::eRead, "");
    EXPECT_NE(first, second);
}

TEST_F(FileReplace, ClosingReplacesNothingForReadingOrWithoutAName) {
    const FileOpsFake files;
    store->FileClose(CRegLibImplFile::eRead, file.path());
    store->FileClose(CRegLibImplFile::eWrite, "");
    EXPECT_THAT(files.calls(), IsEmpty());
}

TEST_F(FileReplace, FailuresOfTheNamesAreIgnored) {
    FileOpsFake files;
    for (const FileCall call : {FileCall::eUnlink, FileCall::eLink, FileCall::eExchange}) {
        files.fail(call, EIO);
    }
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n");
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
    files.heal();
    files.fail(FileCall::eRename, EIO);
    EXPECT_EQ(setText(*store, root, "a", "y"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n");
}

TEST_F(FileReplace, TheBackupHoldsWhatWasThereBeforeTheLatestChange) {
    EXPECT_EQ(file.readBackup(), "");  // the file was made empty, then got its top-level key
    std::string before = file.read();
    const auto expectBackup = [&] {
        EXPECT_EQ(file.readBackup(), before);
        before = file.read();
    };
    CRegKey key;
    createKey(*store, "k", key);
    expectBackup();
    setText(*store, key, "a", "x");
    expectBackup();
    setNumber(*store, key, "a", 1);
    expectBackup();
    setBytes(*store, key, "b", "y");
    expectBackup();
    store->VQRegDeleteValue(key, "a");
    expectBackup();
    store->VQRegDeleteValue(key, "b");
    expectBackup();
    store->VQRegDeleteKey(root, "k");
    expectBackup();
    EXPECT_EQ(before, "[Velquist]\n");
}

TEST_F(FileReplace, TheFileIsNeverMissingWhileItIsReplaced) {
    // With the first rename left out, as a process killed there would leave things.
    FileOpsFake files;
    files.fail(FileCall::eRename, EIO);
    setText(*store, root, "a", "x");
    EXPECT_EQ(file.read(), "[Velquist]\n");
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
}

TEST_F(FileReplace, AStoreReadsAgainOnlyWhatOthersHaveWritten) {
    const auto other = open();
    EXPECT_EQ(setText(*other, *other->RootKey(), "a", "x"), REGLIB_OK);
    const FileOpsFake files;
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_EQ(files.count(FileCall::eOpenForReading), 1);
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_EQ(get(*other, *other->RootKey(), "a"), Value::ofText("x"));
    EXPECT_EQ(files.count(FileCall::eOpenForReading), 1);
}

TEST_F(FileReplace, TheLockIsHeldOncePerAcquisition) {
    store->Lock();
    store->Lock();
    store->Unlock();
    EXPECT_TRUE(probe.isLocked());
    store->Unlock();
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(FileReplace, ADirectoryWithoutRoomFailsEveryChangeAndStillAnswers) {
    const std::string directory = file.directory() + "/small";
    ASSERT_EQ(::mkdir(directory.c_str(), 0777), 0);
    ASSERT_EQ(::mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=64k"), 0);
    {
        const std::string path = directory + "/s.cfg";
        CRegLibImplFile small(path.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        CRegKey& smallRoot = *small.RootKey();
        EXPECT_EQ(setText(small, smallRoot, "a", "x"), REGLIB_OK);
        const std::string text = readFile(path);
        EXPECT_EQ(setText(small, smallRoot, "big", std::string(100000, 'x').c_str()),
                  REGLIB_E_FILE_OPEN);
        EXPECT_EQ(readFile(path), text);
        EXPECT_EQ(readFile(path + ".bak"), "[Velquist]\n");
        EXPECT_EQ(get(small, smallRoot, "a"), Value::ofText("x"));
        EXPECT_EQ(setText(small, smallRoot, "big", "y"), REGLIB_OK);
        EXPECT_EQ(readFile(path), "[Velquist]\n\"a\"=string:x\n\"big\"=string:y\n");
    }
    EXPECT_EQ(::umount(directory.c_str()), 0);
}

TEST_F(FileReplace, AReadOnlyDirectoryFailsEveryChangeAndStillAnswers) {
    const std::string directory = file.directory() + "/fixed";
    ASSERT_EQ(::mkdir(directory.c_str(), 0777), 0);
    ASSERT_EQ(::mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=64k"), 0);
    {
        const std::string path = directory + "/s.cfg";
        CRegLibImplFile fixed(path.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        CRegKey& fixedRoot = *fixed.RootKey();
        CRegKey key;
        setText(fixed, fixedRoot, "a", "x");
        createKey(fixed, "k", key);
        ASSERT_EQ(::mount(nullptr, directory.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        EXPECT_EQ(setText(fixed, fixedRoot, "a", "y"), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(setNumber(fixed, fixedRoot, "b", 1), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(setBytes(fixed, fixedRoot, "c", "z"), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(createKey(fixed, "l", key), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(fixed.VQRegDeleteKey(fixedRoot, "k"), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(fixed.VQRegDeleteValue(fixedRoot, "b"), REGLIB_E_FILE_OPEN);
        EXPECT_EQ(get(fixed, fixedRoot, "a"), Value::ofText("y"));
        EXPECT_EQ(openKey(fixed, "l", key), REGLIB_OK);
        EXPECT_EQ(readFile(path), "[Velquist]\n\"a\"=string:x\n[Velquist/k]\n");
    }
    EXPECT_EQ(::umount(directory.c_str()), 0);
}

TEST_F(FileReplace, ADeathInAReplacementMakesEverybodyReadAgain) {
    const std::uint64_t before = probe.sharedStamp();
    file.write("[Velquist]\n\"a\"=string:x\n");
    probe.markReplacing();  // and nobody holds the lock: the writer has died
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_GT(probe.sharedStamp(), before);
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(FileReplace, ADeathThatANewStoreNoticesMakesTheOthersReadAgainToo) {
    file.write("[Velquist]\n\"a\"=string:x\n");
    probe.markReplacing();  // and nobody holds the lock: the writer has died
    const auto other = open();
    EXPECT_EQ(get(*other, *other->RootKey(), "a"), Value::ofText("x"));
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
}

TEST_F(FileReplace, ADeathBetweenTheRenamesBringsTheBackupBack) {
    setText(*store, root, "a", "x");
    ASSERT_EQ(::rename(file.path().c_str(), file.backupPath().c_str()), 0);
    probe.markReplacing();  // and nobody holds the lock: the writer has died
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n");
}

// Whoever may write the stamp could otherwise make a change undo another one unseen.
TEST_F(FileReplace, AChangeIsNotDeceivedByAnOldStampThatSomebodyPutsBack) {
    const std::uint64_t old = probe.sharedStamp();
    const auto other = open();
    ASSERT_EQ(setText(*other, *other->RootKey(), "a", "x"), REGLIB_OK);
    probe.setSharedStamp(old);
    ASSERT_EQ(setText(*store, root, "b", "y"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n\"b\"=string:y\n");
    ASSERT_EQ(setText(*other, *other->RootKey(), "c", "z"), REGLIB_OK);
    probe.setSharedStamp(0);
    get(*store, root, "a");
    probe.setSharedStamp(0);
    ASSERT_EQ(setText(*store, root, "d", "w"), REGLIB_OK);
    EXPECT_NE(file.read().find("\"c\"=string:z"), std::string::npos);
}

// Its children of the same text, who died in the moment without a file, have left nobody behind who
// would know of it.
TEST_F(FileReplace, ADeathBetweenTheRenamesIsMendedWhenAllUsersAreGone) {
    setText(*store, root, "a", "x");
    store.reset();
    ForkedChild writer([&] {
        struct Dying : FileOpsFake {
            int rename(const char* path, const char* newPath) override {
                const int result = FileOpsFake::rename(path, newPath);
                ::_exit(result == 0 ? 7 : 8);
            }
        } files;
        files.fail(FileCall::eLink, EPERM);
        files.fail(FileCall::eExchange, EINVAL);
        const auto own = open();
        setText(*own, *own->RootKey(), "a", "y");
        return 0;
    });
    ASSERT_EQ(writer.wait(), 7);
    ASSERT_FALSE(file.exists());
    const auto next = open();
    EXPECT_EQ(get(*next, *next->RootKey(), "a"), Value::ofText("x"));
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n");
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    ASSERT_EQ(std::remove(file.backupPath().c_str()), 0);
    const auto last = open("Other");
    EXPECT_EQ(file.read(), "[Other]\n") << "the mark has gone";
}

TEST_F(FileReplace, AnUpdateIsNotUndoneByAStampThatSomebodyWrites) {
    setText(*store, root, "a", "old");
    ASSERT_EQ(store->VQRegBeginUpdate(), REGLIB_OK);
    ASSERT_EQ(setText(*store, root, "a", "new"), REGLIB_OK);
    for (const std::uint64_t step : {2u, 1u}) {
        probe.setSharedStamp(probe.sharedStamp() + step);
        EXPECT_EQ(get(*store, root, "a"), Value::ofText("new"));
    }
    EXPECT_EQ(store->VQRegEndUpdate(), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:new\n");
}
