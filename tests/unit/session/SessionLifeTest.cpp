// Sessions, their handles, and which of them ends first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "RegLib/store/Store.h"
#include "VQRegLib.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::IsEmpty;
using vqtest::TempStore;

namespace {

std::unique_ptr<CRegLib> open(const TempStore& store, const char* root = nullptr) {
    return std::make_unique<CRegLib>(store.path().c_str(), root, CRegLib::eLocationDefault,
                                     nullptr);
}

}  // namespace

TEST(ResultCodes, AllFailuresAreNegativeAndDistinct) {
    const std::set<int> codes = {
        REGLIB_E_FAIL,           REGLIB_E_NOT_FOUND,        REGLIB_E_NOT_A_KEY,
        REGLIB_E_NOT_A_VALUE,    REGLIB_E_NO_MORE_ITEMS,    REGLIB_E_KEY_NOT_FOUND,
        REGLIB_E_BAD_TYPE,       REGLIB_E_BUFFER_TOO_SMALL, REGLIB_E_BAD_FORMAT,
        REGLIB_E_INVALID_HANDLE, REGLIB_E_KEY_NOT_EMPTY,    REGLIB_E_FILE_OPEN,
        REGLIB_E_END_OF_FILE,    REGLIB_E_NOT_INITIALIZED};
    EXPECT_EQ(REGLIB_OK, 0);
    EXPECT_EQ(codes.size(), 14u);
    EXPECT_LT(*codes.rbegin(), 0);
    EXPECT_EQ(static_cast<unsigned>(*codes.begin()), 0xC1250FA0u);
    EXPECT_EQ(static_cast<unsigned>(*codes.rbegin()), 0xC1250FB7u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_NOT_FOUND), 0xC1250FA2u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_NOT_A_KEY), 0xC1250FA3u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_NOT_A_VALUE), 0xC1250FA4u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_NO_MORE_ITEMS), 0xC1250FA5u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_KEY_NOT_FOUND), 0xC1250FA8u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_BAD_TYPE), 0xC1250FB0u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_BUFFER_TOO_SMALL), 0xC1250FB1u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_BAD_FORMAT), 0xC1250FB2u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_INVALID_HANDLE), 0xC1250FB3u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_KEY_NOT_EMPTY), 0xC1250FB4u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_FILE_OPEN), 0xC1250FB5u);
    EXPECT_EQ(static_cast<unsigned>(REGLIB_E_END_OF_FILE), 0xC1250FB6u);
}

TEST(PublicTypes, HaveFixedNumbersAndShapes) {
    EXPECT_EQ(int{CRegLib::eNone}, 0);
    EXPECT_EQ(int{CRegLib::eBinary}, 1);
    EXPECT_EQ(int{CRegLib::eDword}, 2);
    EXPECT_EQ(int{CRegLib::eString}, 3);
    EXPECT_EQ(int{CRegLib::eLocationDefault}, 0);
    EXPECT_EQ(sizeof(CRegLib::eDataType), 4u);
    EXPECT_EQ(sizeof(CRegLib::LOCATION), 4u);
    EXPECT_EQ(sizeof(CRegKey), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(CRegLib), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(CRegistryChangeHandler), sizeof(void*));
    EXPECT_TRUE(std::has_virtual_destructor_v<VQException>);
    EXPECT_FALSE(std::is_copy_constructible_v<CRegKey>);
    EXPECT_FALSE(std::is_copy_assignable_v<CRegKey>);
}

TEST(Exceptions, SayWhereTheyWereThrown) {
    const VQException exception(REGLIB_E_FAIL, "RegLib", 1972);
    EXPECT_EQ(exception.m_lCode, REGLIB_E_FAIL);
    EXPECT_STREQ(exception.m_szText, "RegLib.1972");
    EXPECT_EQ(sizeof exception.m_szText, 272u);
    EXPECT_STREQ(VQException(1, nullptr, 2).m_szText, "");
    EXPECT_STREQ(VQException(1, "", -3).m_szText, ".-3");
}

TEST(Exceptions, ALongTextIsCut) {
    const std::string fitting(267, 'f');
    EXPECT_EQ(VQException(1, fitting.c_str(), 9).m_szText, fitting + ".9");
    EXPECT_EQ(VQException(1, std::string(268, 'f').c_str(), 9).m_szText,
              std::string(268, 'f') + ".");
    EXPECT_EQ(VQException(1, std::string(1000, 'f').c_str(), 9).m_szText, std::string(269, 'f'));
}

TEST(Handles, AreEmptyAtFirst) {
    const CRegKey key;
    EXPECT_EQ(key.GetKeyName(), nullptr);
    EXPECT_EQ(key.GetKeyFullName(), nullptr);
    EXPECT_EQ(key.GetKeyHandleID(), 0u);
}

TEST(Handles, KnowTheirNames) {
    const TempStore store;
    const auto session = open(store, "Site");
    CRegKey created;
    ASSERT_EQ(session->VQRegCreateKey(nullptr, "Net\\Ports", created, 1), REGLIB_OK);
    EXPECT_STREQ(created.GetKeyName(), "Ports");
    EXPECT_STREQ(created.GetKeyFullName(), "[Site/Net/Ports]");
    CRegKey opened;
    ASSERT_EQ(session->VQRegCreateKey(nullptr, "NET/pORTS", opened, 0), REGLIB_OK);
    EXPECT_STREQ(opened.GetKeyName(), "pORTS");
    EXPECT_STREQ(opened.GetKeyFullName(), "[Site/Net/Ports]");
    EXPECT_STREQ(session->RootKey()->GetKeyFullName(), "[Site]");
}

TEST(Handles, AreNumberedFromOneInEachStore) {
    const TempStore store;
    const TempStore other;
    for (const TempStore* each : {&store, &other}) {
        const auto session = open(*each);
        EXPECT_EQ(session->RootKey()->GetKeyHandleID(), 1u);
        CRegKey first;
        CRegKey second;
        ASSERT_EQ(session->VQRegCreateKey(nullptr, "A", first, 1), REGLIB_OK);
        ASSERT_EQ(session->VQRegCreateKey(nullptr, "a", second, 1), REGLIB_OK);
        EXPECT_EQ(first.GetKeyHandleID(), 2u);
        EXPECT_EQ(second.GetKeyHandleID(), 3u);
        ASSERT_EQ(session->VQRegCreateKey(nullptr, "A/B/C", second, 1), REGLIB_OK);
        EXPECT_EQ(second.GetKeyHandleID(), 6u);
    }
}

TEST(Handles, WorkWhileAnotherSessionHoldsTheStore) {
    const TempStore store;
    auto first = open(store);
    const auto second = open(store);
    CRegKey key;
    ASSERT_EQ(first->VQRegCreateKey(nullptr, "A", key, 1), REGLIB_OK);
    first.reset();
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/A]");
    EXPECT_EQ(second->VQRegSetValue(key, "Number", 1ul), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n[Velquist/A]\n\"Number\"=dword:00000001\n");
}

TEST(Handles, OutliveTheirStoreWithoutNames) {
    const TempStore store;
    auto session = open(store);
    const auto key = std::make_unique<CRegKey>();
    ASSERT_EQ(session->VQRegCreateKey(nullptr, "A/B", *key, 1), REGLIB_OK);
    session.reset();
    EXPECT_STREQ(key->GetKeyName(), "");
    EXPECT_STREQ(key->GetKeyFullName(), "");
    EXPECT_EQ(key->GetKeyHandleID(), 0u);
}

TEST(Handles, OfADestroyedStoreAreInvalidInTheNextOne) {
    const TempStore store;
    CRegKey key;
    ASSERT_EQ(open(store)->VQRegCreateKey(nullptr, "A", key, 1), REGLIB_OK);
    const auto next = open(store);
    EXPECT_EQ(next->VQRegSetValue(key, "Number", 1ul), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(next->VQRegCreateKey(nullptr, "A", key, 0), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/A]");
    EXPECT_EQ(next->VQRegSetValue(key, "Number", 1ul), REGLIB_OK);
}

TEST(Handles, OfADeletedKeyAreInvalid) {
    const TempStore store;
    const auto session = open(store);
    CRegKey key;
    ASSERT_EQ(session->VQRegCreateKey(nullptr, "A", key, 1), REGLIB_OK);
    ASSERT_EQ(session->VQRegDeleteKey(*session->RootKey(), "A"), REGLIB_OK);
    std::string name;
    EXPECT_EQ(session->VQRegSetValue(key, "Number", 1ul), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(session->VQRegEnumKeys(key, 0, name), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(store.read(), "[Velquist]\n");
}

TEST(Sessions, OfOneStoreShareTheRootKey) {
    const TempStore store;
    const auto first = open(store);
    const auto second = open(store);
    const auto other = open(store, "Site");
    EXPECT_EQ(first->RootKey(), second->RootKey());
    EXPECT_NE(first->RootKey(), other->RootKey());
    EXPECT_STREQ(other->RootKey()->GetKeyFullName(), "[Site]");
}

TEST(Sessions, ReportSuccess) {
    const TempStore store;
    for (const int initial : {-1, 1}) {
        int first = initial;
        int second = initial;
        const CRegLib opens(store.path().c_str(), nullptr, CRegLib::eLocationDefault, &first);
        const CRegLib joins(store.path().c_str(), nullptr, CRegLib::eLocationDefault, &second);
        EXPECT_EQ(first, 0);
        EXPECT_EQ(second, 0);
    }
}

TEST(Sessions, AMissingFileIsCreatedWithTheTopLevelKey) {
    const TempStore store;
    EXPECT_NE(open(store)->RootKey(), nullptr);
    EXPECT_EQ(store.read(), "[Velquist]\n");
    const TempStore other;
    EXPECT_NE(open(other, "Site")->RootKey(), nullptr);
    EXPECT_EQ(other.read(), "[Site]\n");
}

TEST(Sessions, ARootKeyMayBeAPath) {
    const TempStore store;
    const auto session = open(store, "Velquist/Logging");
    EXPECT_STREQ(session->RootKey()->GetKeyFullName(), "[Velquist/Logging]");
    EXPECT_STREQ(session->RootKey()->GetKeyName(), "Logging");
    EXPECT_EQ(store.read(), "[Velquist]\n[Velquist/Logging]\n");
}

TEST(Sessions, ClosingWritesNothing) {
    const TempStore store;
    auto session = open(store);
    ASSERT_EQ(session->VQRegSetValue(*session->RootKey(), "Number", 1ul), REGLIB_OK);
    const ino_t inode = store.inode();
    session.reset();
    EXPECT_EQ(store.inode(), inode);
    EXPECT_THAT(store.files(), ElementsAre("store.cfg", "store.cfg.bak"));
}

TEST(KeyVectors, HoldEveryLevelAndAreFreed) {
    const TempStore store;
    const auto session = open(store);
    CRegKey key;
    ASSERT_EQ(session->VQRegCreateKey(nullptr, "a/B", key, 1), REGLIB_OK);
    std::vector<CRegKey*> keys;
    std::vector<std::string> names = {"old"};
    EXPECT_EQ(session->VQRegCreateKeyVect(session->RootKey(), "A/b/New", keys, names, 1),
              REGLIB_OK);
    EXPECT_THAT(names, ElementsAre("a", "B", "New"));
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_STREQ(keys[0]->GetKeyFullName(), "[Velquist/a]");
    EXPECT_STREQ(keys[2]->GetKeyFullName(), "[Velquist/a/B/New]");
    keys.insert(keys.begin() + 1, nullptr);
    EXPECT_EQ(session->VQRegDestroyKeyVect(keys), REGLIB_OK);
    EXPECT_THAT(keys, IsEmpty());
    EXPECT_EQ(session->VQRegDestroyKeyVect(keys), REGLIB_OK);
}

TEST(KeyVectors, AreLeftAloneWhenALevelIsMissing) {
    const TempStore store;
    const auto session = open(store);
    CRegKey key;
    ASSERT_EQ(session->VQRegCreateKey(nullptr, "a", key, 1), REGLIB_OK);
    std::vector<CRegKey*> keys = {&key};
    std::vector<std::string> names = {"old"};
    EXPECT_EQ(session->VQRegCreateKeyVect(session->RootKey(), "a/b/c", keys, names, 0), REGLIB_OK);
    EXPECT_THAT(keys, ElementsAre(&key));
    EXPECT_THAT(names, ElementsAre("old"));
    EXPECT_EQ(store.read(), "[Velquist]\n[Velquist/a]\n");
}

// While there is one in the process, every operation looks further.
TEST(Sessions, LeaveNoUpdateOpenThatTheyHaveNotEnded) {
    const TempStore store;
    auto session = open(store);
    ASSERT_EQ(session->VQRegBeginUpdate(), REGLIB_OK);
    ASSERT_EQ(session->VQRegBeginUpdate(), REGLIB_OK);
    EXPECT_EQ(CRegLibImpl::m_openUpdates.load(), 1);
    session.reset();
    EXPECT_EQ(CRegLibImpl::m_openUpdates.load(), 0);
}
