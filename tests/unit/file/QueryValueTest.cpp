// Reading values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using namespace std::string_literals;

namespace {

constexpr unsigned char kUntouched = 0xEE;

class QueryValue : public StoreTest {
protected:
    // Queries with a buffer of that size; `bytes` is what the buffer and its surroundings hold
    // afterwards.
    int query(const char* name, unsigned long capacity) {
        unsigned char buffer[64];
        std::memset(buffer, kUntouched, sizeof buffer);
        size = capacity;
        type = CRegLib::eString;
        const int code = store->VQRegQueryValue(root, name, type, buffer, &size);
        std::size_t end = sizeof buffer;
        while (end > 0 && buffer[end - 1] == kUntouched) {
            --end;
        }
        bytes.assign(reinterpret_cast<const char*>(buffer), end);
        return code;
    }

    // Puts that line into the tree as it stands.
    void storeLine(const char* name, const std::string& line, CRegLib::eDataType lineType) {
        setText(*store, root, name, "x");
        probe.tree().setValue(*probe.node({"velquist", name}), lineType, line);
    }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned long size = 0;
    std::string bytes;
};

}  // namespace

TEST_F(QueryValue, ANumberNeedsFourBytes) {
    setNumber(*store, root, "n", 31);
    EXPECT_EQ(probe.node({"velquist", "n"})->line(), "\"n\"=dword:0000001F");
    for (const unsigned long capacity : {0ul, 3ul}) {
        EXPECT_EQ(query("n", capacity), REGLIB_E_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 4u);
        EXPECT_EQ(type, CRegLib::eDword);
        EXPECT_EQ(bytes, "");
    }
    for (const unsigned long capacity : {4ul, 40ul}) {
        EXPECT_EQ(query("N", capacity), REGLIB_OK);
        EXPECT_EQ(size, 4u);
        const std::uint32_t number = 31;
        EXPECT_EQ(bytes, std::string(reinterpret_cast<const char*>(&number), sizeof number));
    }
}

TEST_F(QueryValue, ATextNeedsRoomForItsNul) {
    setText(*store, root, "t", "abc");
    for (const unsigned long capacity : {0ul, 3ul}) {
        EXPECT_EQ(query("t", capacity), REGLIB_E_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 4u);
        EXPECT_EQ(type, CRegLib::eString);
        EXPECT_EQ(bytes, "");
    }
    for (const unsigned long capacity : {4ul, 40ul}) {
        EXPECT_EQ(query("t", capacity), REGLIB_OK);
        EXPECT_EQ(size, 4u);
        EXPECT_EQ(bytes, "abc\0"s);
    }
    setText(*store, root, "t", "");
    EXPECT_EQ(query("t", 0), REGLIB_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(query("t", 1), REGLIB_OK);
    EXPECT_EQ(bytes, "\0"s);
}

TEST_F(QueryValue, BytesNeedHalfTheirDigits) {
    setBytes(*store, root, "b", "\x01\xAB\x00"s);
    EXPECT_EQ(probe.node({"velquist", "b"})->line(), "\"b\"=binary:01AB00");
    for (const unsigned long capacity : {0ul, 2ul}) {
        EXPECT_EQ(query("b", capacity), REGLIB_E_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 3u);
        EXPECT_EQ(type, CRegLib::eBinary);
        EXPECT_EQ(bytes, "");
    }
    for (const unsigned long capacity : {3ul, 4ul}) {
        EXPECT_EQ(query("b", capacity), REGLIB_OK);
        EXPECT_EQ(size, 3u);
        EXPECT_EQ(bytes, "\x01\xAB\x00"s);
    }
}

TEST_F(QueryValue, NoBytesNeedNoBuffer) {
    setBytes(*store, root, "b", "");
    EXPECT_EQ(query("b", 0), REGLIB_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(query("b", 5), REGLIB_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(bytes, "");
}

TEST_F(QueryValue, AnOddDigitIsAByteBeyondTheSizeWhereThereIsRoom) {
    storeLine("b", "\"b\"=binary:01ABC", CRegLib::eBinary);
    EXPECT_EQ(query("b", 1), REGLIB_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(query("b", 2), REGLIB_OK);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(bytes, "\x01\xAB");
    EXPECT_EQ(query("b", 3), REGLIB_OK);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(bytes, "\x01\xAB\x0C");
    storeLine("c", "\"c\"=binary:7", CRegLib::eBinary);
    EXPECT_EQ(query("c", 0), REGLIB_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(bytes, "");
    EXPECT_EQ(query("c", 1), REGLIB_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(bytes, "\x07");
}

TEST_F(QueryValue, ReadsWhatAHandEditedFileHolds) {
    file.write(
        "[Velquist]\n\"n\"=dword:1f\n\"long\"=dword:123456789\n\"none\"=dword:\n"
        "\"b\"=binary:aBcD\n");
    probe.moveStamp();
    EXPECT_EQ(get(*store, root, "n"), Value::ofDword(0x1F));
    EXPECT_EQ(get(*store, root, "long"), Value::ofDword(0x12345678));
    EXPECT_EQ(get(*store, root, "none"), Value::ofDword(0));
    EXPECT_EQ(get(*store, root, "b"), Value::ofBinary("\xAB\xCD"));
}

TEST_F(QueryValue, WithoutABufferAsksForTheSize) {
    setNumber(*store, root, "n", 1);
    setText(*store, root, "t", "abc");
    setBytes(*store, root, "b", "xy");
    const auto sizeOf = [&](const char* name) {
        size = 1000;
        EXPECT_EQ(store->VQRegQueryValue(root, name, type, nullptr, &size),
                  REGLIB_E_BUFFER_TOO_SMALL);
        return size;
    };
    EXPECT_EQ(sizeOf("n"), 4u);
    EXPECT_EQ(sizeOf("t"), 4u);
    EXPECT_EQ(sizeOf("b"), 2u);
}

TEST_F(QueryValue, FailsForWhatIsNoValue) {
    CRegKey key;
    createKey(*store, "k", key);
    EXPECT_EQ(query("none", 10), REGLIB_E_NOT_FOUND);
    EXPECT_EQ(type, CRegLib::eNone);
    EXPECT_EQ(size, 10u);
    EXPECT_EQ(query("K", 10), REGLIB_E_NOT_A_VALUE);
    EXPECT_EQ(type, CRegLib::eNone);
    CRegKey empty;
    EXPECT_EQ(get(*store, empty, "v"), Value::failure(REGLIB_E_INVALID_HANDLE));
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(QueryValue, ANameWithAColonReadsBackWrong) {
    setText(*store, root, "a:b", "text");
    EXPECT_EQ(get(*store, root, "a:b"), Value::ofText("b\"=string:text"));
    setNumber(*store, root, "c:d", 0x1F);
    EXPECT_EQ(get(*store, root, "c:d"), Value::ofDword(0xD)) << "the digits of d\"=dword:";
    setNumber(*store, root, "e:x", 0x1F);
    EXPECT_EQ(get(*store, root, "e:x"), Value::ofDword(0)) << "x is no digit";
    setBytes(*store, root, "f:a", "\x01\x02");
    const Value wrong = get(*store, root, "f:a");
    EXPECT_EQ(wrong.type, CRegLib::eBinary);
    ASSERT_EQ(wrong.bytes.size(), 7u) << "half of a\"=binary:0102";
    EXPECT_EQ(wrong.bytes[0], '\x0A');
    EXPECT_EQ(wrong.bytes.substr(5), "\x01\x02");
    const auto other = open();
    EXPECT_EQ(get(*other, *other->RootKey(), "c:d"), Value::ofDword(0xD));
    EXPECT_EQ(get(*other, *other->RootKey(), "f:a"), wrong);
}

TEST_F(QueryValue, TellsWhatIsWrongWithAStoredLine) {
    storeLine("v", "\"v\"string:x", CRegLib::eString);
    EXPECT_EQ(query("v", 10), REGLIB_E_FAIL);
    EXPECT_EQ(type, CRegLib::eString);
    storeLine("v", "\"v\"=string", CRegLib::eString);
    EXPECT_EQ(query("v", 10), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(type, CRegLib::eString);
    EXPECT_EQ(size, 10u);
    storeLine("v", "\"v\"=qword:1", static_cast<CRegLib::eDataType>(0));
    EXPECT_EQ(query("v", 10), REGLIB_E_BAD_TYPE);
    EXPECT_EQ(type, CRegLib::eNone);
    EXPECT_EQ(size, 0u);
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(QueryValue, FailsWhenTheFileCannotBeRead) {
    setText(*store, root, "v", "x");
    file.write("bad\n");
    probe.moveStamp();
    EXPECT_EQ(query("v", 10), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(type, CRegLib::eNone);
    FileOpsFake files;
    files.fail(FileCall::eOpenForReading, EACCES);
    EXPECT_EQ(query("v", 10), REGLIB_E_FILE_OPEN);
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(QueryValue, AnExceptionKeepsTheLockAndAnswersWhatWasKnown) {
    setText(*store, root, "v", "x");
    FileOpsFake files;
    for (const bool noMemory : {true, false}) {
        noMemory ? files.throwNoMemory(FileCall::eOpenForReading)
                 : files.throwOther(FileCall::eOpenForReading);
        probe.markReplacing();  // the reading needs the lock then: somebody has died
        EXPECT_EQ(query("v", 10), REGLIB_OK);
        EXPECT_EQ(type, CRegLib::eNone);
        EXPECT_EQ(size, 10u);
        EXPECT_EQ(bytes, "");
        EXPECT_TRUE(probe.isLocked());
        EXPECT_EQ(store->Unlock(), 0);
        EXPECT_FALSE(probe.isLocked());
    }
    files.heal();
    EXPECT_EQ(get(*store, root, "v"), Value::ofText("x"));
}

TEST_F(QueryValue, AnExceptionWhileTheFileIsReadClosesIt) {
    setText(*store, root, "v", "x");
    FileOpsFake files;
    files.throwNoMemory(FileCall::eRead);
    probe.markReplacing();
    EXPECT_EQ(query("v", 10), REGLIB_OK);
    EXPECT_FALSE(probe.isFileOpen());
    EXPECT_TRUE(probe.isLocked());
    store->Unlock();
}

TEST_F(QueryValue, AnExceptionKeepsNoLockWhereTheReadingNeedsNone) {
    setText(*store, root, "v", "x");
    FileOpsFake files;
    files.throwNoMemory(FileCall::eRead);
    probe.moveStamp();
    EXPECT_EQ(query("v", 10), REGLIB_OK);
    EXPECT_EQ(type, CRegLib::eNone);
    EXPECT_FALSE(probe.isLocked());
    EXPECT_FALSE(probe.isFileOpen());
}

TEST_F(QueryValue, OtherOperationsGiveTheLockBackWhenThereIsNoMemory) {
    FileOpsFake files;
    files.throwNoMemory(FileCall::eOpenForReading);
    probe.moveStamp();
    std::string name;
    EXPECT_EQ(store->VQRegQueryValueType(root, "v", type), REGLIB_E_FAIL);
    EXPECT_EQ(setText(*store, root, "v", "x"), REGLIB_E_FAIL);
    EXPECT_EQ(setNumber(*store, root, "v", 1), REGLIB_E_FAIL);
    EXPECT_EQ(setBytes(*store, root, "v", "x"), REGLIB_E_FAIL);
    EXPECT_EQ(store->VQRegDeleteValue(root, "v"), REGLIB_E_FAIL);
    EXPECT_EQ(store->VQRegEnumValues(root, 0, name, type), REGLIB_E_FAIL);
    EXPECT_EQ(store->VQRegEnumKeys(root, 0, name), REGLIB_E_FAIL);
    EXPECT_EQ(store->VQRegDeleteKey(root, "k"), REGLIB_E_FAIL);
    CRegKey key;
    EXPECT_EQ(createKey(*store, "k", key), REGLIB_E_FAIL);
    EXPECT_FALSE(probe.isLocked());
    EXPECT_FALSE(probe.isFileOpen());
}

TEST_F(QueryValue, TheTypeAloneNeedsNoBuffer) {
    setNumber(*store, root, "n", 1);
    setText(*store, root, "t", "x");
    setBytes(*store, root, "b", "x");
    CRegKey key;
    createKey(*store, "k", key);
    const auto typeOf = [&](const char* name, int expected) {
        type = CRegLib::eString;
        EXPECT_EQ(store->VQRegQueryValueType(root, name, type), expected) << name;
        return type;
    };
    EXPECT_EQ(typeOf("N", REGLIB_OK), CRegLib::eDword);
    EXPECT_EQ(typeOf("t", REGLIB_OK), CRegLib::eString);
    EXPECT_EQ(typeOf("b", REGLIB_OK), CRegLib::eBinary);
    EXPECT_EQ(typeOf("none", REGLIB_E_NOT_FOUND), CRegLib::eNone);
    EXPECT_EQ(typeOf("k", REGLIB_E_NOT_A_VALUE), CRegLib::eNone);
    CRegKey empty;
    type = CRegLib::eString;
    EXPECT_EQ(store->VQRegQueryValueType(empty, "n", type), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(type, CRegLib::eNone);
    file.write("bad\n");
    probe.moveStamp();
    EXPECT_EQ(typeOf("n", REGLIB_E_BAD_FORMAT), CRegLib::eNone);
}

TEST_F(QueryValue, LongNamesAreFoundRegardlessOfCase) {
    const std::string lower(300, 'a');
    const std::string upper(300, 'A');
    EXPECT_EQ(setText(*store, root, lower.c_str(), "x"), REGLIB_OK);
    EXPECT_EQ(get(*store, root, upper.c_str()), Value::ofText("x"));
    EXPECT_EQ(store->VQRegDeleteValue(root, upper.c_str()), REGLIB_OK);
}
