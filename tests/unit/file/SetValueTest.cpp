// Setting, deleting and enumerating values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>

#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SetValue : public StoreTest {
protected:
    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
    CRegKey key;
    int changed = -1;
};

class DeleteValue : public SetValue {};

class EnumValues : public SetValue {
protected:
    std::string nameAt(int index) {
        std::string name = "(none)";
        type = CRegLib::eNone;
        code = store->VQRegEnumValues(root, index, name, type);
        return name;
    }

    void set(std::initializer_list<const char*> names) {
        for (const char* name : names) {
            ASSERT_EQ(setText(*store, root, name, "x"), REGLIB_OK);
        }
    }

    int code = 0;
    CRegLib::eDataType type = CRegLib::eNone;
};

}  // namespace

TEST_F(SetValue, WritesALineForEachType) {
    EXPECT_EQ(setText(*store, root, "t", " a\"b:c ", &changed), REGLIB_OK);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(setNumber(*store, root, "n", 31, &changed), REGLIB_OK);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(setBytes(*store, root, "b", "\x01\xAB\x00"s, &changed), REGLIB_OK);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(file.read(),
              "[Velquist]\n\"b\"=binary:01AB00\n\"n\"=dword:0000001F\n\"t\"=string: a\"b:c \n");
    const auto* const node = probe.node({"velquist", "n"});
    EXPECT_EQ(node->m_iIsKey, 0);
    EXPECT_EQ(node->type(), CRegLib::eDword);
    EXPECT_EQ(probe.tree().parentOf(*node), probe.node({"velquist"}));
}

TEST_F(SetValue, TakesTheLow32BitsOfANumber) {
    EXPECT_EQ(setNumber(*store, root, "n", static_cast<unsigned long>(0x1FFFFFFFEull)), REGLIB_OK);
    EXPECT_EQ(get(*store, root, "n"), Value::ofDword(0xFFFFFFFEu));
    EXPECT_EQ(setNumber(*store, root, "n", ULONG_MAX), REGLIB_OK);
    EXPECT_EQ(get(*store, root, "n"), Value::ofDword(0xFFFFFFFFu));
}

TEST_F(SetValue, TakesEmptyTextsBytesAndNames) {
    EXPECT_EQ(setText(*store, root, "", ""), REGLIB_OK);
    EXPECT_EQ(store->VQRegSetValue(root, "b", nullptr, 0, &changed), REGLIB_OK);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(file.read(), "[Velquist]\n\"\"=string:\n\"b\"=binary:\n");
    EXPECT_EQ(get(*store, root, ""), Value::ofText(""));
    EXPECT_EQ(get(*store, root, "b"), Value::ofBinary(""));
}

TEST_F(SetValue, ToWhatItIsAlreadyDoesNotWrite) {
    setText(*store, root, "t", "x");
    setNumber(*store, root, "n", 1);
    setBytes(*store, root, "b", "x");
    const std::uint64_t stamp = probe.sharedStamp();
    const FileOpsFake files;
    EXPECT_EQ(setText(*store, root, "t", "x", &changed), REGLIB_OK);
    EXPECT_EQ(changed, 0);
    changed = -1;
    EXPECT_EQ(setNumber(*store, root, "n", 1, &changed), REGLIB_OK);
    EXPECT_EQ(changed, 0);
    changed = -1;
    EXPECT_EQ(setNumber(*store, root, "N", 1, &changed), REGLIB_OK);
    EXPECT_EQ(changed, 0);  // the line keeps its own spelling
    changed = -1;
    EXPECT_EQ(setBytes(*store, root, "b", "x", &changed), REGLIB_OK);
    EXPECT_EQ(changed, 0);
    EXPECT_THAT(files.calls(), IsEmpty());
    EXPECT_EQ(probe.sharedStamp(), stamp);
}

TEST_F(SetValue, TextsAndBytesBringTheirSpellingIntoTheLine) {
    setText(*store, root, "Speed", "x");
    EXPECT_EQ(setText(*store, root, "SPEED", "x", &changed), REGLIB_OK);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(file.read(), "[Velquist]\n\"SPEED\"=string:x\n");
    EXPECT_THAT(valueNames(*store, root), ElementsAre("Speed"));
    EXPECT_EQ(setBytes(*store, root, "sPEED", "x", &changed), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"sPEED\"=binary:78\n");
    EXPECT_THAT(valueNames(*store, root), ElementsAre("Speed"));
}

TEST_F(SetValue, NumbersKeepTheStoredSpelling) {
    setNumber(*store, root, "Speed", 1);
    setNumber(*store, root, "SPEED", 2);
    EXPECT_EQ(file.read(), "[Velquist]\n\"Speed\"=dword:00000002\n");
    // The stored spelling is that of the creation, whatever the line says meanwhile.
    setText(*store, root, "SPEED", "x");
    setNumber(*store, root, "speed", 3);
    EXPECT_EQ(file.read(), "[Velquist]\n\"Speed\"=dword:00000003\n");
    setNumber(*store, root, "NEW", 4);
    EXPECT_EQ(file.read(), "[Velquist]\n\"NEW\"=dword:00000004\n\"Speed\"=dword:00000003\n");
}

TEST_F(SetValue, MayChangeTheType) {
    setText(*store, root, "v", "x");
    EXPECT_EQ(setNumber(*store, root, "v", 5, &changed), REGLIB_OK);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(get(*store, root, "v"), Value::ofDword(5));
    setBytes(*store, root, "v", "ab");
    EXPECT_EQ(get(*store, root, "v"), Value::ofBinary("ab"));
    setText(*store, root, "v", "text");
    EXPECT_EQ(get(*store, root, "v"), Value::ofText("text"));
    EXPECT_EQ(file.read(), "[Velquist]\n\"v\"=string:text\n");
}

TEST_F(SetValue, WritesWhenOnlyTheTypeDiffers) {
    setText(*store, root, "v", "x");
    probe.node({"velquist", "v"})->m_eDataType = CRegLib::eBinary;
    EXPECT_EQ(setText(*store, root, "v", "x", &changed), REGLIB_OK);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(probe.node({"velquist", "v"})->type(), CRegLib::eString);
}

TEST_F(SetValue, NamesThatDifferOnlyFarBehindAreTwo) {
    const std::string same(300, 'N');
    const std::string one = same + "1";
    const std::string two = same + "2";
    EXPECT_EQ(setText(*store, root, one.c_str(), "x"), REGLIB_OK);
    EXPECT_EQ(get(*store, root, two.c_str()), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_EQ(setNumber(*store, root, two.c_str(), 2), REGLIB_OK);
    EXPECT_EQ(get(*store, root, one.c_str()), Value::ofText("x"));
    const auto other = open();
    EXPECT_EQ(get(*other, *other->RootKey(), one.c_str()), Value::ofText("x"));
    EXPECT_EQ(get(*other, *other->RootKey(), two.c_str()), Value::ofDword(2));
}

TEST_F(SetValue, FailsForTheNameOfASubKey) {
    createKey(*store, "k", key);
    const FileOpsFake files;
    EXPECT_EQ(setText(*store, root, "K", "x", &changed), REGLIB_E_NOT_A_VALUE);
    EXPECT_EQ(changed, 0);
    changed = -1;
    EXPECT_EQ(setNumber(*store, root, "k", 1, &changed), REGLIB_E_NOT_A_VALUE);
    EXPECT_EQ(changed, 0);
    changed = -1;
    EXPECT_EQ(setBytes(*store, root, "k", "x", &changed), REGLIB_E_NOT_A_VALUE);
    EXPECT_EQ(changed, 0);
    EXPECT_THAT(files.calls(), IsEmpty());
}

TEST_F(SetValue, FailsForAHandleThatWasNeverFilled) {
    EXPECT_EQ(setText(*store, key, "v", "x", &changed), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(changed, 0);
    EXPECT_EQ(setNumber(*store, key, "v", 1), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(setBytes(*store, key, "v", "x"), REGLIB_E_INVALID_HANDLE);
}

TEST_F(SetValue, FailsWhenTheFileCannotBeRead) {
    file.write("bad\n");
    probe.moveStamp();
    EXPECT_EQ(setText(*store, root, "v", "x", &changed), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(changed, 0);
    EXPECT_EQ(probe.node({"velquist", "v"}), nullptr);
    EXPECT_EQ(file.read(), "bad\n");
    FileOpsFake files;
    files.fail(FileCall::eOpenForReading, EACCES);
    EXPECT_EQ(setNumber(*store, root, "v", 1, &changed), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(changed, 0);
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(SetValue, FailsForMoreBytesThanThereIsMemory) {
    const unsigned char byte = 0;
    EXPECT_EQ(store->VQRegSetValue(root, "b", &byte, ULONG_MAX, &changed), REGLIB_E_FAIL);
    EXPECT_EQ(changed, 0);
    EXPECT_EQ(probe.node({"velquist", "b"}), nullptr);
    EXPECT_FALSE(probe.isLocked());
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(SetValue, AfterAFailedWriteTheSameValueIsNotWrittenAgain) {
    FileOpsFake files;
    files.fail(FileCall::eCreateForWriting, EACCES);
    EXPECT_EQ(setText(*store, root, "v", "x", &changed), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(changed, 1);
    files.heal();
    EXPECT_EQ(setText(*store, root, "v", "x", &changed), REGLIB_OK);
    EXPECT_EQ(changed, 0);
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(DeleteValue, RemovesTheValueWhateverItsSpelling) {
    setText(*store, root, "Speed", "x");
    setText(*store, root, "t", "y");
    EXPECT_EQ(store->VQRegDeleteValue(root, "SPEED"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"t\"=string:y\n");
    EXPECT_EQ(get(*store, root, "speed"), Value::failure(REGLIB_E_NOT_FOUND));
}

TEST_F(DeleteValue, FailsForAMissingValueAndDoesNotWrite) {
    createKey(*store, "k", key);
    const FileOpsFake files;
    EXPECT_EQ(store->VQRegDeleteValue(root, "none"), REGLIB_E_NOT_FOUND);
    EXPECT_EQ(store->VQRegDeleteValue(root, "k"), REGLIB_E_NOT_A_VALUE);
    CRegKey empty;
    EXPECT_EQ(store->VQRegDeleteValue(empty, "v"), REGLIB_E_INVALID_HANDLE);
    EXPECT_THAT(files.calls(), IsEmpty());
}

TEST_F(DeleteValue, TellsThatTheFileCannotBeReadOrWritten) {
    setText(*store, root, "v", "x");
    FileOpsFake files;
    files.fail(FileCall::eCreateForWriting, EACCES);
    EXPECT_EQ(store->VQRegDeleteValue(root, "v"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(store->VQRegDeleteValue(root, "v"), REGLIB_E_NOT_FOUND);
    file.write("bad\n");
    probe.moveStamp();
    EXPECT_EQ(store->VQRegDeleteValue(root, "v"), REGLIB_E_BAD_FORMAT);
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(EnumValues, GivesNameAndTypeInTheByteOrderOfTheFoldedNames) {
    setText(*store, root, "b", "x");
    setNumber(*store, root, "C", 1);
    setBytes(*store, root, "a", "x");
    EXPECT_EQ(nameAt(0), "a");
    EXPECT_EQ(type, CRegLib::eBinary);
    EXPECT_EQ(nameAt(1), "b");
    EXPECT_EQ(type, CRegLib::eString);
    EXPECT_EQ(nameAt(2), "C");
    EXPECT_EQ(type, CRegLib::eDword);
    EXPECT_EQ(nameAt(3), "(none)");
    EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS);
}

TEST_F(EnumValues, PassesSubKeysOver) {
    createKey(*store, "b", key);
    nameAt(0);
    EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS);
    set({"a", "c"});
    EXPECT_THAT(valueNames(*store, root), ElementsAre("a", "c"));
}

TEST_F(EnumValues, EndsBehindTheLastOne) {
    nameAt(0);
    EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS);
    set({"a"});
    EXPECT_EQ(nameAt(0), "a");
    for (const int index : {1, INT_MAX, -1, INT_MIN}) {
        type = CRegLib::eDword;
        EXPECT_EQ(nameAt(index), "(none)") << index;
        EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS) << index;
    }
}

TEST_F(EnumValues, SeesValuesThatComeAndGoBetweenTheCalls) {
    set({"b", "d", "f"});
    EXPECT_EQ(nameAt(1), "d");
    set({"a"});
    EXPECT_EQ(nameAt(1), "b");
    EXPECT_EQ(nameAt(3), "f");
    store->VQRegDeleteValue(root, "f");
    nameAt(3);
    EXPECT_EQ(code, REGLIB_E_NO_MORE_ITEMS);
    EXPECT_EQ(nameAt(2), "d");
    store->VQRegDeleteValue(root, "a");
    EXPECT_EQ(nameAt(1), "d");
    EXPECT_EQ(nameAt(0), "b");
}

TEST_F(EnumValues, SeesValuesOfAnotherProcess) {
    set({"b", "d"});
    EXPECT_EQ(nameAt(1), "d");
    const auto other = open();
    setText(*other, *other->RootKey(), "c", "y");
    EXPECT_EQ(nameAt(1), "c");
    EXPECT_EQ(nameAt(2), "d");
}

TEST_F(EnumValues, FailsForAHandleThatWasNeverFilledAndForABadFile) {
    std::string name = "before";
    EXPECT_EQ(store->VQRegEnumValues(key, 0, name, type), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(name, "before");
    file.write("bad\n");
    probe.moveStamp();
    nameAt(0);
    EXPECT_EQ(code, REGLIB_E_BAD_FORMAT);
    EXPECT_FALSE(probe.isLocked());
}
