// Null texts and pointers, and the splitting of paths.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Handlers.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::IsEmpty;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

const char* const kNoText = nullptr;
const unsigned char* const kNoData = nullptr;

class SessionArguments : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(session.RootKey(), nullptr);
        ASSERT_EQ(session.VQRegSetValue(root(), "Number", 7ul), REGLIB_OK);
        text = store.read();
        inode = store.inode();
    }

    void TearDown() override {
        EXPECT_EQ(store.read(), text);
        EXPECT_EQ(store.inode(), inode);
    }

    CRegKey& root() { return *session.RootKey(); }

    TraceLog log{8};
    TempStore store;
    CRegLib session{store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
    std::string text;
    ino_t inode = 0;
};

}  // namespace

TEST_F(SessionArguments, ANullTextFails) {
    CRegKey key;
    CRegLib::eDataType type = CRegLib::eString;
    unsigned char data[4] = {9, 9, 9, 9};
    unsigned long size = sizeof data;
    EXPECT_EQ(session.VQRegCreateKey(nullptr, kNoText, key, 1), REGLIB_E_FAIL);
    EXPECT_EQ(key.GetKeyName(), nullptr);
    EXPECT_EQ(session.VQRegDeleteKey(root(), kNoText), REGLIB_E_FAIL);
    EXPECT_EQ(session.VQRegDeleteValue(root(), kNoText), REGLIB_E_FAIL);
    EXPECT_EQ(session.VQRegSetValue(root(), kNoText, 1ul), REGLIB_E_FAIL);
    EXPECT_EQ(session.VQRegSetValue(root(), kNoText, "x"), REGLIB_E_FAIL);
    EXPECT_EQ(session.VQRegSetValue(root(), "Number", kNoText), REGLIB_E_FAIL);
    EXPECT_EQ(session.VQRegSetValue(root(), kNoText, data, 1), REGLIB_E_FAIL);
    EXPECT_EQ(session.VQRegQueryValueType(root(), kNoText, type), REGLIB_E_FAIL);
    EXPECT_EQ(type, CRegLib::eNone);
    type = CRegLib::eString;
    EXPECT_EQ(session.VQRegQueryValue(root(), kNoText, type, data, &size), REGLIB_E_FAIL);
    EXPECT_EQ(type, CRegLib::eNone);
    EXPECT_EQ(size, 4u);
    EXPECT_THAT(data, ElementsAre(9, 9, 9, 9));
}

TEST_F(SessionArguments, ANullTextIsTraced) {
    const std::size_t before = log.texts().size();
    session.VQRegSetValue(root(), kNoText, 1ul);
    const std::vector<std::string> lines = log.texts(TraceLog::Addresses::eReplace);
    ASSERT_EQ(lines.size(), before + 1);
    EXPECT_EQ(lines.back(), "CRegLib::VQRegSetValue (0x@), ValueName \"(null)\"");
}

TEST_F(SessionArguments, NullDataFailsUnlessItsSizeIsNull) {
    EXPECT_EQ(session.VQRegSetValue(root(), "Number", kNoData, 1), REGLIB_E_FAIL);
    EXPECT_EQ(session.VQRegSetValue(root(), "Empty", kNoData, 0), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n\"Empty\"=binary:\n\"Number\"=dword:00000007\n");
    text = store.read();
    inode = store.inode();
}

TEST_F(SessionArguments, ANullSizeFails) {
    unsigned char data[4] = {};
    CRegLib::eDataType type = CRegLib::eString;
    EXPECT_EQ(session.VQRegQueryValue(root(), "Number", type, data, nullptr), REGLIB_E_FAIL);
    EXPECT_EQ(type, CRegLib::eNone);
}

TEST_F(SessionArguments, ANullBufferAsksForTheSize) {
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned long size = 100;
    EXPECT_EQ(session.VQRegQueryValue(root(), "Number", type, nullptr, &size),
              REGLIB_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(type, CRegLib::eDword);
    EXPECT_EQ(size, 4u);
}

TEST_F(SessionArguments, ANullParentMeansTheRootKey) {
    CRegKey key;
    EXPECT_EQ(session.VQRegCreateKey(nullptr, "missing", key, 0), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(session.VQRegCreateKey(nullptr, "Number", key, 0), REGLIB_E_NOT_A_KEY);
}

TEST_F(SessionArguments, ANullPathMakesNoKeys) {
    CRegKey key;
    std::vector<CRegKey*> keys = {&key};
    std::vector<std::string> names = {"old"};
    EXPECT_EQ(session.VQRegCreateKeyVect(nullptr, kNoText, keys, names, 1), REGLIB_OK);
    EXPECT_THAT(keys, ElementsAre(&key));
    EXPECT_THAT(names, ElementsAre("old"));
}

TEST_F(SessionArguments, NullHandlersAreIgnored) {
    const std::size_t before = log.texts().size();
    session.SetRegistryChangeHandler(nullptr);
    session.ClrRegistryChangeHandler(nullptr);
    std::vector<std::string> lines = log.texts();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(lines, ElementsAre("CRegLibImplFile::SetRegistryChangeHandler",
                                   "<<<CRegLibImplFile::SetRegistryChangeHandler",
                                   "CRegLibImplFile::ClrRegistryChangeHandler",
                                   "<<<CRegLibImplFile::ClrRegistryChangeHandler"));
    EXPECT_EQ(vqtest::countThreads("FileWatch") + vqtest::countThreads("RegChgNotif"), 0);
    EXPECT_FALSE(vqtest::hasSemaphore());
}

TEST_F(SessionArguments, AnEmptyHandleIsInvalid) {
    CRegKey key;
    std::string name = "old";
    CRegLib::eDataType type = CRegLib::eString;
    unsigned char data[4] = {};
    unsigned long size = sizeof data;
    EXPECT_EQ(session.VQRegSetValue(key, "x", 1ul), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session.VQRegSetValue(key, "x", "x"), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session.VQRegSetValue(key, "x", data, 1), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session.VQRegQueryValue(key, "x", type, data, &size), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session.VQRegQueryValueType(key, "x", type), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session.VQRegDeleteValue(key, "x"), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session.VQRegEnumKeys(key, 0, name), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session.VQRegEnumValues(key, 0, name, type), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(name, "old");
}

TEST_F(SessionArguments, PathsAreSplitAtBothSeparators) {
    const auto split = [this](const char* path) {
        std::vector<std::string> names;
        EXPECT_EQ(session.ParseKeyPath(path, names), REGLIB_OK) << path;
        return names;
    };
    EXPECT_THAT(split("a\\b/c"), ElementsAre("a", "b", "c"));
    EXPECT_THAT(split("a/b\\c"), ElementsAre("a", "b", "c"));
    EXPECT_THAT(split("/a//b/"), ElementsAre("", "a", "", "b", ""));
    EXPECT_THAT(split("\\"), ElementsAre("", ""));
    EXPECT_THAT(split(""), ElementsAre(""));
    EXPECT_THAT(split("MiXed"), ElementsAre("MiXed"));
    EXPECT_THAT(split("."), ElementsAre("."));
    EXPECT_EQ(split(std::string(100000, '/').c_str()).size(), 100001u);
    const std::string longName(100000, 'n');
    EXPECT_THAT(split(longName.c_str()), ElementsAre(longName));
}

TEST_F(SessionArguments, NamesOfAPathAreAppended) {
    std::vector<std::string> names = {"old"};
    EXPECT_EQ(session.ParseKeyPath("a/b", names), REGLIB_OK);
    EXPECT_THAT(names, ElementsAre("old", "a", "b"));
    EXPECT_EQ(session.ParseKeyPath(nullptr, names), REGLIB_E_FAIL);
    EXPECT_THAT(names, ElementsAre("old", "a", "b"));
}
