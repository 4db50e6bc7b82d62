// Opening and creating keys by their path.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class KeyPath : public StoreTest {
protected:
    int openIt(const char* path) { return store->VQRegCreateKey(nullptr, path, key, 0, &exists); }
    int createIt(const char* path) { return store->VQRegCreateKey(nullptr, path, key, 1, &exists); }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
    CRegKey key;
    int exists = -1;
};

}  // namespace

TEST_F(KeyPath, SlashesAndBackslashesSeparateEqually) {
    ASSERT_EQ(createIt("Network\\Ports/Serial"), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/Network/Ports/Serial]");
    CRegKey again;
    ASSERT_EQ(openKey(*store, "network/PORTS\\serial", again), REGLIB_OK);
    EXPECT_STREQ(again.GetKeyFullName(), "[Velquist/Network/Ports/Serial]");
    EXPECT_STREQ(again.GetKeyName(), "serial");
    EXPECT_EQ(store->nodeOf(key), store->nodeOf(again));
}

TEST_F(KeyPath, CreatingTellsWhetherAllLevelsExisted) {
    EXPECT_EQ(createIt("a"), REGLIB_OK);
    EXPECT_EQ(exists, 0);
    EXPECT_EQ(createIt("a"), REGLIB_OK);
    EXPECT_EQ(exists, 1);
    EXPECT_EQ(createIt("a/b"), REGLIB_OK);
    EXPECT_EQ(exists, 0);
    EXPECT_EQ(openIt("A/B"), REGLIB_OK);
    EXPECT_EQ(exists, 1);
}

TEST_F(KeyPath, AnyNumberButZeroAsksForCreation) {
    for (const int create : {1, 2, -1, 256, INT_MIN, INT_MAX}) {
        const std::string path = "k" + std::to_string(create);
        exists = 7;
        EXPECT_EQ(store->VQRegCreateKey(nullptr, path.c_str(), key, create, &exists), REGLIB_OK);
        EXPECT_EQ(exists, 0);
        EXPECT_EQ(openIt(path.c_str()), REGLIB_OK);
        std::vector<CRegKey*> keys;
        std::vector<std::string> names;
        EXPECT_EQ(store->VQRegCreateKeyVect(&key, "a/b", keys, names, create), REGLIB_OK);
        EXPECT_EQ(keys.size(), 2u) << create;
        store->VQRegDestroyKeyVect(keys);
    }
}

TEST_F(KeyPath, CreatingWhatExistsDoesNotWriteTheFile) {
    createIt("a/b");
    const FileOpsFake files;
    EXPECT_EQ(createIt("A/b"), REGLIB_OK);
    EXPECT_THAT(files.calls(), IsEmpty());
}

TEST_F(KeyPath, CreatingSeveralLevelsWritesTheFileOnce) {
    const FileOpsFake files;
    EXPECT_EQ(createIt("a/b/c"), REGLIB_OK);
    EXPECT_EQ(files.count(FileCall::eCreateForWriting), 1);
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/a]\n[Velquist/a/b]\n[Velquist/a/b/c]\n");
    EXPECT_EQ(file.readBackup(), "[Velquist]\n");
}

TEST_F(KeyPath, OpeningAMissingKeyFailsAndTellsThatItExisted) {
    EXPECT_EQ(openIt("none"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(exists, 1);
    EXPECT_EQ(key.GetKeyName(), nullptr);
    EXPECT_EQ(openIt("none/deeper"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(exists, 1);
}

TEST_F(KeyPath, AValueOnThePathIsNotAKey) {
    setText(*store, root, "v", "x");
    EXPECT_EQ(openIt("v"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(exists, 1);
    EXPECT_EQ(createIt("V/k"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(exists, 1);
}

TEST_F(KeyPath, AfterAMissingKeyTheRestIsStillLookedUpInTheLastKeyReached) {
    setText(*store, root, "valuename", "x");
    EXPECT_EQ(openIt("missing/valuename"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(openIt("missing/other"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(openIt("missing/other/valuename/more"), REGLIB_E_NOT_A_KEY);
    createIt("k");
    setText(*store, key, "inner", "x");
    EXPECT_EQ(openIt("k/missing/inner"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(openIt("k/missing/valuename"), REGLIB_E_KEY_NOT_FOUND);
}

TEST_F(KeyPath, AfterAValueNothingMoreIsMade) {
    setText(*store, root, "v", "x");
    createIt("k");
    EXPECT_EQ(createIt("v/new"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(createIt("v/k"), REGLIB_E_NOT_A_KEY);
    EXPECT_THAT(keyNames(*store, root), ElementsAre("k"));
}

TEST_F(KeyPath, AFailureLeavesTheFileAlone) {
    createIt("a");
    setText(*store, key, "v", "x");
    const std::string text = file.read();
    const FileOpsFake files;
    EXPECT_EQ(createIt("a/v/new"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(exists, 1);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/a]");
    EXPECT_THAT(files.calls(), IsEmpty());
    EXPECT_EQ(file.read(), text);
}

TEST_F(KeyPath, LevelsMadeBeforeAFailedWriteStayInMemory) {
    FileOpsFake files;
    files.fail(FileCall::eCreateForWriting, EACCES);
    EXPECT_EQ(createIt("a/b"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(exists, 0);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/a/b]");
    files.heal();
    EXPECT_EQ(openIt("a/b"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n");
    setText(*store, root, "v", "x");
    EXPECT_EQ(file.read(), "[Velquist]\n\"v\"=string:x\n[Velquist/a]\n[Velquist/a/b]\n");
}

TEST_F(KeyPath, AKeyKeepsTheLastLevelThatWasReached) {
    createIt("a/b");
    CRegKey reached;
    EXPECT_EQ(openKey(*store, "A/b/none/more", reached), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_STREQ(reached.GetKeyFullName(), "[Velquist/a/b]");
    EXPECT_STREQ(reached.GetKeyName(), "b");
    EXPECT_EQ(CRegKeyAccess::record(reached)->m_lRefCount.load(), 0);
    EXPECT_EQ(get(*store, reached, "v"), Value::failure(REGLIB_E_NOT_FOUND));
}

TEST_F(KeyPath, AKeyThatWasFilledKeepsItsContentWhenNothingIsReached) {
    createIt("a");
    const unsigned long id = key.GetKeyHandleID();
    EXPECT_EQ(openIt("none"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(key.GetKeyHandleID(), id);
    EXPECT_STREQ(key.GetKeyName(), "a");
}

TEST_F(KeyPath, EveryLevelTakesAnIdAndStaysRegistered) {
    ASSERT_EQ(createIt("a/b/c"), REGLIB_OK);
    EXPECT_EQ(key.GetKeyHandleID(), 4u);
    EXPECT_EQ(store->m_handles.nextId(), 5u);
    EXPECT_EQ(store->m_handles.size(), 4u);
    EXPECT_EQ(store->m_handles.nodeOf(2), probe.node({"velquist", "a"}));
    EXPECT_EQ(store->m_handles.nodeOf(3), probe.node({"velquist", "a", "b"}));
    EXPECT_EQ(store->m_handles.nodeOf(4), probe.node({"velquist", "a", "b", "c"}));
    EXPECT_EQ(store->m_handles.recordOf(2)->m_lRefCount.load(), -1);
    EXPECT_STREQ(store->m_handles.recordOf(2)->m_pszFullName, "[Velquist/a]");
    EXPECT_EQ(store->m_handles.recordOf(3)->m_lRefCount.load(), -1);
    EXPECT_EQ(store->m_handles.recordOf(4)->m_lRefCount.load(), 1);
    ASSERT_EQ(openIt("a/b"), REGLIB_OK);
    EXPECT_EQ(key.GetKeyHandleID(), 6u);
    EXPECT_EQ(store->m_handles.recordOf(4), nullptr);
    EXPECT_EQ(store->m_handles.size(), 5u);
}

TEST_F(KeyPath, FillingAHandleAgainReleasesItAtTheFirstLevel) {
    createIt("a");
    const unsigned long old = key.GetKeyHandleID();
    EXPECT_EQ(openIt("a/none"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(store->m_handles.recordOf(static_cast<std::uint32_t>(old)), nullptr);
    EXPECT_EQ(key.GetKeyHandleID(), old + 1);
}

TEST_F(KeyPath, AKeyMayBeItsOwnParentAndName) {
    createIt("a");
    EXPECT_EQ(store->VQRegCreateKey(&key, "b", key, 1, &exists), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/a/b]");
    EXPECT_EQ(store->VQRegCreateKey(&key, key.GetKeyName(), key, 1, &exists), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/a/b/b]");
    EXPECT_STREQ(key.GetKeyName(), "b");
}

TEST_F(KeyPath, EmptyNamesAreNamesToo) {
    EXPECT_EQ(openIt("a/"), REGLIB_E_KEY_NOT_FOUND);
    ASSERT_EQ(createIt("a/"), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/a/]");
    EXPECT_STREQ(key.GetKeyName(), "");
    ASSERT_EQ(openIt("a\\"), REGLIB_OK);
    ASSERT_EQ(createIt(""), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/]");
    ASSERT_EQ(createIt("/x//y"), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist//x//y]");
    EXPECT_THAT(keyNames(*store, root), ElementsAre("", "a"));
}

TEST_F(KeyPath, NamesKeepTheSpellingOfTheirCreation) {
    createIt("Network");
    CRegKey again;
    ASSERT_EQ(openKey(*store, "NETWORK", again), REGLIB_OK);
    EXPECT_STREQ(again.GetKeyName(), "NETWORK");
    EXPECT_STREQ(again.GetKeyFullName(), "[Velquist/Network]");
    EXPECT_THAT(keyNames(*store, root), ElementsAre("Network"));
}

TEST_F(KeyPath, NamesThatDifferOnlyFarBehindAreTwo) {
    const std::string same(300, 'n');
    const std::string one = same + "1";
    const std::string two = same + "2";
    EXPECT_EQ(createIt(one.c_str()), REGLIB_OK);
    EXPECT_EQ(openIt(two.c_str()), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(createIt(two.c_str()), REGLIB_OK);
    EXPECT_EQ(exists, 0);
    EXPECT_THAT(keyNames(*store, root), ElementsAre(one, two));
    const auto other = open();
    EXPECT_THAT(keyNames(*other, *other->RootKey()), ElementsAre(one, two));
}

TEST_F(KeyPath, AParentThatIsNotRegisteredStandsForTheTop) {
    CRegKey empty;
    EXPECT_EQ(openKey(*store, "a", key, &empty), REGLIB_E_KEY_NOT_FOUND);
    ASSERT_EQ(openKey(*store, "velquist", key, &empty), REGLIB_OK);
    EXPECT_EQ(store->nodeOf(key), store->nodeOf(root));
    ASSERT_EQ(createKey(*store, "Other/x", key, &empty), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Other/x]");
    EXPECT_EQ(file.read(), "[Other]\n[Other/x]\n[Velquist]\n");
}

TEST_F(KeyPath, AFileThatCannotBeReadFailsBeforeAnythingElse) {
    probe.moveStamp();
    file.write("bad\n");
    EXPECT_EQ(createIt("a"), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(exists, 1);
    EXPECT_EQ(key.GetKeyName(), nullptr);
    EXPECT_EQ(store->m_handles.nextId(), 2u);
    FileOpsFake files;
    files.fail(FileCall::eOpenForReading, EACCES);
    EXPECT_EQ(openIt("a"), REGLIB_E_FILE_OPEN);
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(KeyPath, TheExistsFlagMayBeNull) {
    EXPECT_EQ(store->VQRegCreateKey(nullptr, "a", key, 1, nullptr), REGLIB_OK);
    EXPECT_EQ(store->VQRegCreateKey(nullptr, "b", key, 0, nullptr), REGLIB_E_KEY_NOT_FOUND);
}

TEST_F(KeyPath, FullNamesLeaveOutWhoeverIsNamedLikeTheTop) {
    const auto* const velquist = probe.node({"velquist"});
    EXPECT_EQ(store->CreateFullName(nullptr, "a"), "[a]");
    EXPECT_EQ(store->CreateFullName(&probe.treeRoot(), "a"), "[a]");
    EXPECT_EQ(store->CreateFullName(velquist, "<root>"), "[Velquist]");
    EXPECT_EQ(store->CreateFullName(velquist, "<Root>"), "[Velquist/<Root>]");
    ASSERT_EQ(createKey(*store, "<root>", key), REGLIB_OK);
    EXPECT_EQ(store->CreateFullName(probe.node({"velquist", "<root>"}), "b"), "[Velquist/b]");
    EXPECT_EQ(store->CreateFullName(velquist, ""), "[Velquist/]");
}
