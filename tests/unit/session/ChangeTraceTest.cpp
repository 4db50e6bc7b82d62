// The audit of changes: the lines of level 1.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::IsEmpty;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

class ChangeTrace : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(session.VQRegCreateKey(nullptr, "Net", key, 1), REGLIB_OK);
        newLines();
    }

    // The lines since the last call.
    std::vector<std::string> newLines() {
        std::vector<std::string> lines = log.texts();
        for (std::string& line : lines) {
            // The address only: numbers that were set stay.
            const std::size_t at = line.find(" (0x");
            line.replace(at, 13, " (@)");
        }
        const std::size_t count = lines.size();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(m_seen));
        m_seen = count;
        return lines;
    }

    TraceLog log{1};
    TempStore store;
    CRegLib session{store.path().c_str(), "Root", CRegLib::eLocationDefault, nullptr};
    CRegKey key;

private:
    std::size_t m_seen = 0;
};

constexpr unsigned char kBytes[] = {1, 2};

}  // namespace

TEST_F(ChangeTrace, ACreatedKeyIsNamedWithItsPath) {
    CRegKey made;
    ASSERT_EQ(session.VQRegCreateKey(&key, "A\\b", made, 1), REGLIB_OK);
    EXPECT_THAT(newLines(), ElementsAre("CRegLibImpl::VQRegCreateKey (@), creating new key "
                                        "[Root/Net/A/b]/A\\b"));
}

TEST_F(ChangeTrace, AKeyIsCreatedAndNamedWhateverNumberAsksForIt) {
    for (const int create : {2, -1, 256, INT_MIN}) {
        CRegKey made;
        const std::string name = std::to_string(create);
        EXPECT_EQ(session.VQRegCreateKey(&key, name.c_str(), made, create), REGLIB_OK);
        EXPECT_THAT(newLines(), ElementsAre("CRegLibImpl::VQRegCreateKey (@), creating new key "
                                            "[Root/Net/" +
                                            name + "]/" + name));
    }
}

TEST_F(ChangeTrace, AnExistingOrMissingKeyIsNotTraced) {
    CRegKey opened;
    EXPECT_EQ(session.VQRegCreateKey(nullptr, "NET", opened, 1), REGLIB_OK);
    EXPECT_EQ(session.VQRegCreateKey(nullptr, "Net", opened, 0), REGLIB_OK);
    EXPECT_EQ(session.VQRegCreateKey(nullptr, "none", opened, 0), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ChangeTrace, TheCreatedNameMayBelongToTheKeyThatIsFilled) {
    CRegKey made;
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "Name", made, 1), REGLIB_OK);
    newLines();
    ASSERT_EQ(session.VQRegCreateKey(&key, made.GetKeyName(), made, 1), REGLIB_OK);
    EXPECT_THAT(newLines(), ElementsAre("CRegLibImpl::VQRegCreateKey (@), creating new key "
                                        "[Root/Net/Name]/Name"));
}

TEST_F(ChangeTrace, ValuesAreTracedWhenTheyChange) {
    ASSERT_EQ(session.VQRegSetValue(key, "Text", "50% of %s"), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(key, "Number", 0xFEul), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(key, "Bytes", kBytes, 2), REGLIB_OK);
    EXPECT_THAT(newLines(),
                ElementsAre("CRegLibImpl::VQRegSetValue (@), setting value [Root/Net]/Text to "
                            "50% of %s",
                            "CRegLibImpl::VQRegSetValue (@), setting value [Root/Net]/Number to "
                            "0x000000FE",
                            "CRegLibImpl::VQRegSetValue (@), setting binary value "
                            "[Root/Net]/Bytes"));
    ASSERT_EQ(session.VQRegSetValue(key, "Text", "50% of %s"), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(key, "NUMBER", 0xFEul), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(key, "Bytes", kBytes, 2), REGLIB_OK);
    EXPECT_THAT(newLines(), IsEmpty());
    ASSERT_EQ(session.VQRegSetValue(key, "TEXT", "50% of %s"), REGLIB_OK);
    EXPECT_THAT(newLines(), ElementsAre("CRegLibImpl::VQRegSetValue (@), setting value "
                                        "[Root/Net]/TEXT to 50% of %s"));
}

TEST_F(ChangeTrace, RefusedValuesAreNotTraced) {
    CRegKey empty;
    EXPECT_EQ(session.VQRegSetValue(empty, "Number", 1ul), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session.VQRegSetValue(*session.RootKey(), "Net", 1ul), REGLIB_E_NOT_A_VALUE);
    EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ChangeTrace, DeletionsAreTracedWhateverTheirResult) {
    CRegKey& root = *session.RootKey();
    ASSERT_EQ(session.VQRegSetValue(key, "Number", 1ul), REGLIB_OK);
    newLines();
    EXPECT_EQ(session.VQRegDeleteValue(key, "none"), REGLIB_E_NOT_FOUND);
    EXPECT_EQ(session.VQRegDeleteValue(root, "Net"), REGLIB_E_NOT_A_VALUE);
    EXPECT_EQ(session.VQRegDeleteKey(root, "Net"), REGLIB_E_KEY_NOT_EMPTY);
    EXPECT_EQ(session.VQRegDeleteValue(key, "NUMBER"), REGLIB_OK);
    EXPECT_EQ(session.VQRegDeleteKey(root, "net"), REGLIB_OK);
    EXPECT_EQ(session.VQRegDeleteKey(root, "net"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_THAT(newLines(),
                ElementsAre("CRegLibImpl::VQRegDeleteValue (@), deleting value [Root/Net]/none",
                            "CRegLibImpl::VQRegDeleteValue (@), deleting value [Root]/Net",
                            "CRegLibImpl::VQRegDeleteKey (@), deleting key [Root]/Net",
                            "CRegLibImpl::VQRegDeleteValue (@), deleting value [Root/Net]/NUMBER",
                            "CRegLibImpl::VQRegDeleteKey (@), deleting key [Root]/net",
                            "CRegLibImpl::VQRegDeleteKey (@), deleting key [Root]/net"));
}

TEST_F(ChangeTrace, ChangesThatCannotBeWrittenAreTraced) {
    const std::string moved = store.directory() + ".moved";
    std::filesystem::rename(store.directory(), moved);
    CRegKey made;
    EXPECT_EQ(session.VQRegCreateKey(nullptr, "New", made, 1), REGLIB_E_NOT_FOUND);
    EXPECT_EQ(session.VQRegSetValue(key, "Number", 1ul), REGLIB_E_NOT_FOUND);
    std::vector<std::string> lines = newLines();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("(Error)"); });
    EXPECT_THAT(lines, ElementsAre("CRegLibImpl::VQRegCreateKey (@), creating new key "
                                   "[Root/New]/New",
                                   "CRegLibImpl::VQRegSetValue (@), setting value "
                                   "[Root/Net]/Number to 0x00000001"));
    std::filesystem::rename(moved, store.directory());
}

TEST_F(ChangeTrace, ReadingIsNotTraced) {
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char data[4];
    unsigned long size = sizeof data;
    session.VQRegQueryValue(key, "x", type, data, &size);
    session.VQRegQueryValueType(key, "x", type);
    session.VQRegEnumKeys(key, 0, name);
    session.VQRegEnumValues(key, 0, name, type);
    std::vector<std::string> names;
    session.ParseKeyPath("a/b", names);
    EXPECT_THAT(newLines(), IsEmpty());
}
