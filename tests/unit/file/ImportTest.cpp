// Merging the file into the tree. What single texts come to is in FieldTextsTest.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

namespace {

class Import : public StoreTest {
protected:
    // Reads `text` into the store as if another process had written it.
    int import(const std::string& text) {
        file.write(text);
        probe.moveStamp();
        store->Lock();
        const int result = store->ImportConfig();
        store->Unlock();
        return result;
    }

    std::string lineOf(const std::vector<std::string>& path) const {
        const auto* const node = probe.node(path);
        return node ? std::string(node->line()) : "(missing)";
    }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
};

}  // namespace

TEST_F(Import, AnEmptyFileAddsNothing) {
    EXPECT_EQ(import(""), REGLIB_OK);
    EXPECT_THAT(keyNames(*store, root), IsEmpty());
    EXPECT_THAT(valueNames(*store, root), IsEmpty());
    EXPECT_EQ(probe.childrenOf(probe.treeRoot()), 1u);
}

TEST_F(Import, HappensOnlyWhenTheStampsDiffer) {
    file.write("[Velquist]\n\"a\"=dword:00000001\n");
    EXPECT_EQ(get(*store, root, "a"), Value::failure(REGLIB_E_NOT_FOUND));
    probe.moveStamp();
    EXPECT_EQ(get(*store, root, "a"), Value::ofDword(1));
    EXPECT_EQ(probe.localStamp(), probe.sharedStamp());
    const FileOpsFake files;
    EXPECT_EQ(get(*store, root, "a"), Value::ofDword(1));
    EXPECT_THAT(files.calls(), IsEmpty());
}

TEST_F(Import, HappensAtASmallerStampToo) {
    file.write("[Velquist]\n\"a\"=dword:00000001\n");
    probe.setSharedStamp(probe.sharedStamp() - 2);
    EXPECT_EQ(get(*store, root, "a"), Value::ofDword(1));
    EXPECT_EQ(probe.localStamp(), probe.sharedStamp());
}

TEST_F(Import, ReadsKeysAndValuesOfAllTypes) {
    EXPECT_EQ(import("[Velquist]\n\"Version\"=string:4.2 build 17\n[Velquist/Network]\n"
                     "\"MacAddr\"=binary:0010A4C3F20B\n\"Port\"=dword:00001F90\n"
                     "[Velquist/Network/Dns]\n\"Primary\"=string:10.1.1.2\n"),
              REGLIB_OK);
    CRegKey network;
    CRegKey dns;
    ASSERT_EQ(openKey(*store, "network", network), REGLIB_OK);
    ASSERT_EQ(openKey(*store, "network/dns", dns), REGLIB_OK);
    EXPECT_EQ(get(*store, root, "version"), Value::ofText("4.2 build 17"));
    EXPECT_EQ(get(*store, network, "macaddr"), Value::ofBinary("\x00\x10\xA4\xC3\xF2\x0B"s));
    EXPECT_EQ(get(*store, network, "port"), Value::ofDword(0x1F90));
    EXPECT_EQ(get(*store, dns, "PRIMARY"), Value::ofText("10.1.1.2"));
    const auto* const port = probe.node({"velquist", "network", "port"});
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->m_iIsKey, 0);
    EXPECT_EQ(probe.nameOf(*port), "Port");
    EXPECT_EQ(port->line(), "\"Port\"=dword:00001F90");
    EXPECT_EQ(probe.tree().parentOf(*port), probe.node({"velquist", "network"}));
}

TEST_F(Import, KeepsWhatTheFileDoesNotHave) {
    CRegKey key;
    createKey(*store, "mine", key);
    setText(*store, key, "v", "x");
    EXPECT_EQ(import("[Velquist]\n\"other\"=string:y\n"), REGLIB_OK);
    EXPECT_EQ(get(*store, key, "v"), Value::ofText("x"));
    setText(*store, root, "third", "z");
    EXPECT_EQ(file.read(),
              "[Velquist]\n\"other\"=string:y\n\"third\"=string:z\n"
              "[Velquist/mine]\n\"v\"=string:x\n");
}

TEST_F(Import, AValueThatAnotherProcessDeletedIsWrittenBack) {
    setText(*store, root, "a", "1");
    setText(*store, root, "b", "2");
    const auto other = open();
    ASSERT_EQ(other->VQRegDeleteValue(*other->RootKey(), "a"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"b\"=string:2\n");
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("1"));
    setText(*store, root, "c", "3");
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:1\n\"b\"=string:2\n\"c\"=string:3\n");
}

TEST_F(Import, FailsAtAValueLineBeforeAnyKeyLine) {
    EXPECT_EQ(import("\"a\"=dword:00000001\n"), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(import("; comment\n[Velquist]\n"), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(import("\n"), REGLIB_E_BAD_FORMAT);
}

TEST_F(Import, FailsInTheSameWayUntilTheFileIsMended) {
    EXPECT_EQ(import("[Velquist]\n\"a\"=dword:00000001\nbad\n\"b\"=dword:00000002\n"),
              REGLIB_E_BAD_FORMAT);
    EXPECT_NE(probe.localStamp(), probe.sharedStamp());
    EXPECT_EQ(lineOf({"velquist", "a"}), "\"a\"=dword:00000001");
    EXPECT_EQ(lineOf({"velquist", "b"}), "(missing)");
    EXPECT_FALSE(probe.isFileOpen());
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(get(*store, root, "a"), Value::failure(REGLIB_E_BAD_FORMAT));
        EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_E_BAD_FORMAT);
    }
    EXPECT_FALSE(probe.isLocked());
    file.write("[Velquist]\n\"c\"=dword:00000003\n");
    EXPECT_EQ(get(*store, root, "a"), Value::ofDword(1));
    EXPECT_EQ(get(*store, root, "c"), Value::ofDword(3));
}

TEST_F(Import, FailsAtABinaryValueThatWasWrittenTooLong) {
    EXPECT_EQ(setBytes(*store, root, "b", std::string(1100, 'x')), REGLIB_OK);
    const auto other = [this] { open(); };
    EXPECT_THROW(other(), VQException);
    probe.moveStamp();
    EXPECT_EQ(get(*store, root, "b"), Value::failure(REGLIB_E_BAD_FORMAT));
}

TEST_F(Import, CutsATextAtItsLineEnd) {
    EXPECT_EQ(setText(*store, root, "a", "one\n\"b\"=string:two"), REGLIB_OK);
    const auto other = open();
    EXPECT_EQ(get(*other, *other->RootKey(), "a"), Value::ofText("one"));
    EXPECT_EQ(get(*other, *other->RootKey(), "b"), Value::ofText("two"));
    EXPECT_EQ(setText(*store, root, "a", "one\ntwo"), REGLIB_OK);
    EXPECT_EQ(get(*other, *other->RootKey(), "a"), Value::failure(REGLIB_E_BAD_FORMAT));
}

TEST_F(Import, KeepsBlanksQuotesAndColonsOfATextsData) {
    setText(*store, root, "a", "  \"x\":=[y]  ");
    const auto other = open();
    EXPECT_EQ(get(*other, *other->RootKey(), "a"), Value::ofText("  \"x\":=[y]  "));
}

TEST_F(Import, TakesTheLatestSpellingOfAValue) {
    import("[Velquist]\n\"Speed\"=string:x\n");
    EXPECT_EQ(import("[Velquist]\n\"SPEED\"=dword:00000001\n"), REGLIB_OK);
    EXPECT_THAT(valueNames(*store, root), ElementsAre("SPEED"));
    EXPECT_EQ(get(*store, root, "speed"), Value::ofDword(1));
}

TEST_F(Import, FindsItsPlaceAmongValuesInAnyOrder) {
    EXPECT_EQ(import("[Velquist]\n\"d\"=string:1\n\"b\"=string:2\n\"c\"=string:3\n"
                     "\"B\"=string:4\n\"a\"=string:5\n\"e\"=string:6\n"),
              REGLIB_OK);
    EXPECT_THAT(valueNames(*store, root), ElementsAre("a", "B", "c", "d", "e"));
    EXPECT_EQ(import("[Velquist]\n\"c\"=string:7\n\"bb\"=string:8\n\"f\"=string:9\n"), REGLIB_OK);
    EXPECT_THAT(valueNames(*store, root), ElementsAre("a", "B", "bb", "c", "d", "e", "f"));
}

TEST_F(Import, TakesAReadErrorForTheEndOfTheFile) {
    FileOpsFake files;
    files.breakReadingAfter(30, EIO);  // in the middle of the third line
    EXPECT_EQ(import("[Velquist]\n\"a\"=string:x\n\"b\"=string:y\n"), REGLIB_OK);
    EXPECT_EQ(lineOf({"velquist", "a"}), "\"a\"=string:x");
    EXPECT_EQ(lineOf({"velquist", "b"}), "(missing)");
    EXPECT_NE(probe.localStamp(), probe.sharedStamp()) << "the next operation reads again";
}

TEST_F(Import, TellsTheEndOfTheFileToItsCallerOnly) {
    store->Lock();
    ASSERT_EQ(store->FileOpen(CRegLibImplFile::eRead, nullptr), REGLIB_OK);
    EXPECT_EQ(probe.importLines(), REGLIB_E_END_OF_FILE);
    store->FileClose(CRegLibImplFile::eRead, "");
    store->Unlock();
}

TEST_F(Import, MakesTheFileWhenItIsMissing) {
    setText(*store, root, "a", "x");
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_FALSE(file.exists());  // nobody has told that the file changed
    probe.moveStamp();
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n");
    EXPECT_EQ(probe.localStamp(), probe.sharedStamp());
}

TEST_F(Import, SucceedsWhenTheMissingFileCannotBeMade) {
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    probe.moveStamp();
    FileOpsFake files;
    files.fail(FileCall::eCreateForWriting, EACCES);
    EXPECT_EQ(get(*store, root, "a"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_FALSE(file.exists());
    EXPECT_NE(probe.localStamp(), probe.sharedStamp());
}

// A writer has died between its two renames: what is missing is not a store without values.
TEST_F(Import, DoesNotMakeAMissingFileAnewWhoseBackupCannotComeBack) {
    setText(*store, root, "a", "x");
    ASSERT_EQ(std::rename(file.path().c_str(), file.backupPath().c_str()), 0);
    const std::string text = file.readBackup();
    probe.markReplacing();
    FileOpsFake files;
    files.fail(FileCall::eLink, EPERM);
    files.fail(FileCall::eRename, EACCES);
    EXPECT_EQ(get(*store, root, "a"), Value::failure(REGLIB_E_FILE_OPEN));
    EXPECT_EQ(setText(*store, root, "b", "y"), REGLIB_E_FILE_OPEN);
    EXPECT_FALSE(file.exists());
    EXPECT_EQ(file.readBackup(), text);
    files.heal();
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_EQ(file.read(), text);
}

TEST_F(Import, MakesTheFileAnewWhereADeadWriterHasLeftNoBackupEither) {
    setText(*store, root, "a", "x");
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    ASSERT_EQ(std::remove(file.backupPath().c_str()), 0);
    probe.markReplacing();
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n");
}

TEST_F(Import, FailsWhenTheFileCannotBeOpened) {
    setText(*store, root, "a", "x");
    probe.moveStamp();
    const std::uint64_t local = probe.localStamp();
    FileOpsFake files;
    files.fail(FileCall::eOpenForReading, EACCES);
    EXPECT_EQ(get(*store, root, "a"), Value::failure(REGLIB_E_FILE_OPEN));
    EXPECT_EQ(probe.localStamp(), local);
    files.heal();
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x"));
}
