// Deleting and enumerating keys.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"
#include "support/Threads.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class DeleteKey : public StoreTest {
protected:
    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
    CRegKey key;
};

// Lets others act once, as soon as a key has been looked up.
class InterruptedStore : public CRegLibImplFile {
public:
    using CRegLibImplFile::CRegLibImplFile;
    using CRegLibImplFile::setKeyInfo;

    void setKeyInfo(CRegKeyImpl* record, const char* fullName, const char* keyName, void* node,
                    std::uint32_t* handleId) override {
        CRegLibImplFile::setKeyInfo(record, fullName, keyName, node, handleId);
        if (const auto action = std::exchange(m_action, nullptr)) {
            action();
        }
    }

    void interruptNext(std::function<void()> action) { m_action = std::move(action); }

private:
    std::function<void()> m_action;
};

class EnumKeys : public DeleteKey {
protected:
    std::string nameAt(int index) {
        std::string name = "(none)";
        code = store->VQRegEnumKeys(root, index, name);
        return name;
    }

    void create(std::initializer_list<const char*> paths) {
        for (const char* path : paths) {
            ASSERT_EQ(createKey(*store, path, key), REGLIB_OK);
        }
    }

    int code = 0;
};

}  // namespace

TEST_F(DeleteKey, RemovesAnEmptyKeyFromTheFile) {
    createKey(*store, "A/b", key);
    EXPECT_EQ(store->VQRegDeleteKey(root, "a\\B"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/A]\n");
    EXPECT_EQ(file.readBackup(), "[Velquist]\n[Velquist/A]\n[Velquist/A/b]\n");
    EXPECT_EQ(openKey(*store, "a/b", key), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(store->VQRegDeleteKey(root, "a"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(DeleteKey, FailsForAMissingKeyAndForAValue) {
    setText(*store, root, "v", "x");
    const FileOpsFake files;
    EXPECT_EQ(store->VQRegDeleteKey(root, "none"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(store->VQRegDeleteKey(root, "v"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(store->VQRegDeleteKey(root, "none/v"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(store->VQRegDeleteKey(root, ""), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_THAT(files.calls(), IsEmpty());
}

TEST_F(DeleteKey, FailsWhileTheKeyHasAValueOrASubKey) {
    createKey(*store, "a", key);
    setText(*store, key, "v", "x");
    const std::string text = file.read();
    EXPECT_EQ(store->VQRegDeleteKey(root, "a"), REGLIB_E_KEY_NOT_EMPTY);
    EXPECT_EQ(file.read(), text);
    EXPECT_EQ(get(*store, key, "v"), Value::ofText("x"));
    store->VQRegDeleteValue(key, "v");
    CRegKey below;
    createKey(*store, "a/b", below);
    EXPECT_EQ(store->VQRegDeleteKey(root, "a"), REGLIB_E_KEY_NOT_EMPTY);
    EXPECT_EQ(store->VQRegDeleteKey(root, "a/b"), REGLIB_OK);
    EXPECT_EQ(store->VQRegDeleteKey(root, "a"), REGLIB_OK);
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(DeleteKey, OthersMayActBetweenTheLookUpAndTheRemoval) {
    ASSERT_EQ(createKey(*store, "a", key), REGLIB_OK);
    InterruptedStore interrupted(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    std::optional<CallElsewhere> change;
    interrupted.interruptNext([&] {
        change.emplace([this] { EXPECT_EQ(setText(*store, key, "v", "x"), REGLIB_OK); });
        EXPECT_TRUE(change->returns()) << "nobody holds the lock";
    });
    EXPECT_EQ(interrupted.VQRegDeleteKey(*interrupted.RootKey(), "a"), REGLIB_E_KEY_NOT_EMPTY);
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/a]\n\"v\"=string:x\n");
}

TEST_F(DeleteKey, OtherHandlesOnTheKeyAreInvalidAfterwards) {
    CRegKey second;
    createKey(*store, "a", key);
    openKey(*store, "a", second);
    ASSERT_EQ(store->VQRegDeleteKey(root, "a"), REGLIB_OK);
    std::string name;
    CRegLib::eDataType type = CRegLib::eString;
    for (CRegKey* const handle : {&key, &second}) {
        EXPECT_EQ(setText(*store, *handle, "v", "x"), REGLIB_E_INVALID_HANDLE);
        EXPECT_EQ(setNumber(*store, *handle, "v", 1), REGLIB_E_INVALID_HANDLE);
        EXPECT_EQ(setBytes(*store, *handle, "v", "x"), REGLIB_E_INVALID_HANDLE);
        EXPECT_EQ(get(*store, *handle, "v"), Value::failure(REGLIB_E_INVALID_HANDLE));
        EXPECT_EQ(store->VQRegQueryValueType(*handle, "v", type), REGLIB_E_INVALID_HANDLE);
        EXPECT_EQ(store->VQRegDeleteValue(*handle, "v"), REGLIB_E_INVALID_HANDLE);
        EXPECT_EQ(store->VQRegEnumKeys(*handle, 0, name), REGLIB_E_INVALID_HANDLE);
        EXPECT_EQ(store->VQRegEnumValues(*handle, 0, name, type), REGLIB_E_INVALID_HANDLE);
        EXPECT_STREQ(handle->GetKeyFullName(), "[Velquist/a]");
    }
}

TEST_F(DeleteKey, OtherHandlesKeepTheirEntries) {
    createKey(*store, "a", key);  // id 2
    ASSERT_EQ(store->VQRegDeleteKey(root, "a"), REGLIB_OK);
    EXPECT_EQ(store->m_handles.recordOf(2), CRegKeyAccess::record(key));
    EXPECT_EQ(store->m_handles.recordOf(3), nullptr);  // the id of the deletion's own look-up
    EXPECT_EQ(store->m_handles.nextId(), 4u);
}

TEST_F(DeleteKey, AHandleOnADeletedKeyAsAParentStandsForTheTop) {
    createKey(*store, "a", key);
    store->VQRegDeleteKey(root, "a");
    CRegKey found;
    EXPECT_EQ(openKey(*store, "velquist", found, &key), REGLIB_OK);
    EXPECT_STREQ(found.GetKeyFullName(), "[Velquist]");
}

TEST_F(DeleteKey, TheKeyCanBeMadeAgainWithAnotherSpelling) {
    createKey(*store, "a", key);
    store->VQRegDeleteKey(root, "a");
    CRegKey again;
    ASSERT_EQ(createKey(*store, "A", again), REGLIB_OK);
    EXPECT_STREQ(again.GetKeyFullName(), "[Velquist/A]");
    EXPECT_EQ(setText(*store, key, "v", "x"), REGLIB_E_INVALID_HANDLE);
}

TEST_F(DeleteKey, EvenTheRootKeyCanBeDeleted) {
    CRegKey empty;
    ASSERT_EQ(store->VQRegDeleteKey(empty, "Velquist"), REGLIB_OK);
    EXPECT_EQ(file.read(), "");
    EXPECT_EQ(setText(*store, root, "v", "x"), REGLIB_E_INVALID_HANDLE);
}

TEST_F(DeleteKey, FailsWhenTheFileCannotBeRead) {
    createKey(*store, "a", key);
    file.write("bad\n");
    probe.moveStamp();
    EXPECT_EQ(store->VQRegDeleteKey(root, "a"), REGLIB_E_BAD_FORMAT);
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(EnumKeys, NamesSubKeysInTheByteOrderOfTheirFoldedNames) {
    create({"b", "C", "a", "_", "B1", "[x"});
    EXPECT_THAT(keyNames(*store, root), ElementsAre("[x", "_", "a", "b", "B1", "C"));
}

TEST_F(EnumKeys, PassesValuesOver) {
    create({"b", "d"});
    for (const char* name : {"a", "c", "e"}) {
        setText(*store, root, name, "x");
    }
    EXPECT_THAT(keyNames(*store, root), ElementsAre("b", "d"));
}

TEST_F(EnumKeys, EndsBehindTheLastOne) {
    EXPECT_EQ(nameAt(0), "(none)");
    EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS);
    setText(*store, root, "v", "x");
    nameAt(0);
    EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS);
    create({"a"});
    EXPECT_EQ(nameAt(0), "a");
    for (const int index : {1, 2, INT_MAX, -1, INT_MIN}) {
        EXPECT_EQ(nameAt(index), "(none)") << index;
        EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS) << index;
    }
}

TEST_F(EnumKeys, AnswersIndexesInAnyOrder) {
    create({"a", "b", "c", "d", "e"});
    std::string names;
    for (const int index : {4, 0, 3, 3, 1, 2, 4, 2, 0}) {
        names += nameAt(index);
    }
    EXPECT_EQ(names, "eaddbceca");
}

TEST_F(EnumKeys, SeesKeysThatComeAndGoBetweenTheCalls) {
    create({"b", "d", "f"});
    EXPECT_EQ(nameAt(1), "d");
    create({"c"});
    EXPECT_EQ(nameAt(1), "c");
    EXPECT_EQ(nameAt(2), "d");
    ASSERT_EQ(store->VQRegDeleteKey(root, "b"), REGLIB_OK);
    EXPECT_EQ(nameAt(2), "f");
    ASSERT_EQ(store->VQRegDeleteKey(root, "f"), REGLIB_OK);
    nameAt(2);
    EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS);
    EXPECT_EQ(nameAt(0), "c");
}

TEST_F(EnumKeys, SeesKeysOfAnotherProcess) {
    create({"b", "d"});
    EXPECT_EQ(nameAt(1), "d");
    const auto other = open();
    CRegKey made;
    ASSERT_EQ(createKey(*other, "c", made), REGLIB_OK);
    EXPECT_EQ(nameAt(1), "c");
}

TEST_F(EnumKeys, KeepsThePlacesOfTwoKeysApart) {
    create({"a/x", "a/y", "b/u", "b/v"});
    CRegKey a;
    CRegKey b;
    openKey(*store, "a", a);
    openKey(*store, "b", b);
    std::string name;
    EXPECT_EQ(store->VQRegEnumKeys(a, 0, name), REGLIB_OK);
    EXPECT_EQ(store->VQRegEnumKeys(b, 1, name), REGLIB_OK);
    EXPECT_EQ(name, "v");
    EXPECT_EQ(store->VQRegEnumKeys(a, 1, name), REGLIB_OK);
    EXPECT_EQ(name, "y");
}

TEST_F(EnumKeys, FailsForAHandleThatWasNeverFilled) {
    CRegKey empty;
    std::string name = "before";
    EXPECT_EQ(store->VQRegEnumKeys(empty, 0, name), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(name, "before");
}

TEST_F(EnumKeys, FailsWhenTheFileCannotBeRead) {
    file.write("bad\n");
    probe.moveStamp();
    nameAt(0);
    EXPECT_EQ(code, REGLIB_E_BAD_FORMAT);
    EXPECT_FALSE(probe.isLocked());
}
