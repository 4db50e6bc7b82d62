#include "RegLib/store/KeyRecord.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <string>
#include <type_traits>
#include <vector>

#include "support/StoreFixture.h"

using namespace vqtest;

namespace {

// Tells which ids it was asked to give up.
class ListeningStore : public CRegLibImplFile {
public:
    explicit ListeningStore(const std::string& path)
        : CRegLibImplFile(path.c_str(), nullptr, CRegLib::eLocationDefault, nullptr) {}

    void deleteKeyHandle(unsigned long handleId) override {
        deleted.push_back(handleId);
        wasListed.push_back(m_handles.recordOf(static_cast<std::uint32_t>(handleId)) != nullptr);
    }

    std::vector<unsigned long> deleted;
    std::vector<bool> wasListed;  // whether each of them was still registered then
};

// Looks at where its id is told while it takes its info.
class WatchingRecord : public CRegKeyImplFile {
public:
    explicit WatchingRecord(const std::uint32_t& told) : m_told(told) {}

    void SetKeyInfo(CRegLibImpl* owner, const char* fullName, const char* keyName,
                    unsigned long handleId) override {
        seen = m_told;
        CRegKeyImplFile::SetKeyInfo(owner, fullName, keyName, handleId);
    }

    std::uint32_t seen = 0;

private:
    const std::uint32_t& m_told;
};

class KeyRecord : public StoreTest {
protected:
    ListeningStore store{file.path()};
    int node = 0;
};

CRegKeyImpl* recordOf(const CRegKey& key) {
    return CRegKeyAccess::record(key);
}

std::string name(const CRegKey& key) {
    return key.GetKeyName();
}

}  // namespace

TEST_F(KeyRecord, IsEmptyWhenMade) {
    const CRegKeyImplFile record;
    EXPECT_EQ(record.m_pRegLibImpl, nullptr);
    EXPECT_EQ(record.m_ulHandleId, 0u);
    EXPECT_EQ(record.m_pszKeyName, nullptr);
    EXPECT_EQ(record.m_pszFullName, nullptr);
    EXPECT_EQ(record.m_lRefCount.load(), 0);
}

TEST_F(KeyRecord, TakesItsInfoAndLeavesTheCount) {
    CRegKeyImplFile record;
    record.m_lRefCount = 5;
    record.SetKeyInfo(&store, "[a/B]", "b", 17);
    EXPECT_EQ(record.m_pRegLibImpl, &store);
    EXPECT_EQ(record.m_ulHandleId, 17u);
    EXPECT_STREQ(record.m_pszFullName, "[a/B]");
    EXPECT_STREQ(record.m_pszKeyName, "b");
    EXPECT_EQ(record.m_lRefCount.load(), 5);
    record.SetKeyInfo(&store, "[c]", "c", 18);
    EXPECT_STREQ(record.m_pszFullName, "[c]");
    EXPECT_EQ(record.m_ulHandleId, 18u);
    record.ClearKeyInfo();
}

TEST_F(KeyRecord, GivesItsTextsBackWhenItTakesOthers) {
    const std::string text(10'000, 't');
    CRegKeyImplFile record;
    const std::size_t before = ::mallinfo2().uordblks;
    for (int i = 0; i < 100; ++i) {
        record.SetKeyInfo(&store, text.c_str(), text.c_str(), 1);
    }
    EXPECT_LT(::mallinfo2().uordblks, before + 10 * text.size());
    record.ClearKeyInfo();
}

TEST_F(KeyRecord, IsClearedToEmptyTextsAndNoOwner) {
    CRegKeyImplFile record;
    record.SetKeyInfo(&store, "[a]", "a", 17);
    record.ClearKeyInfo();
    EXPECT_EQ(record.m_pRegLibImpl, nullptr);
    EXPECT_EQ(record.m_ulHandleId, 0u);
    EXPECT_STREQ(record.m_pszFullName, "");
    EXPECT_STREQ(record.m_pszKeyName, "");
}

TEST_F(KeyRecord, TellsItsOwnerWhenItIsDestroyed) {
    {
        CRegKeyImplFile record;
        record.SetKeyInfo(&store, "[a]", "a", 17);
    }
    EXPECT_EQ(store.deleted, std::vector<unsigned long>{17});
    {
        CRegKeyImplFile record;
        record.SetKeyInfo(&store, "[a]", "a", 18);
        record.ClearKeyInfo();
    }
    EXPECT_EQ(store.deleted, std::vector<unsigned long>{17});
}

TEST_F(KeyRecord, IsRegisteredUnderTheNextId) {
    CRegKeyImplFile record;
    std::uint32_t id = 0;
    CRegLibImpl& base = store;
    base.setKeyInfo(&record, "[a]", "A", &node, &id);
    EXPECT_EQ(id, 2u);
    EXPECT_EQ(record.m_ulHandleId, 2u);
    EXPECT_EQ(record.m_pRegLibImpl, &store);
    EXPECT_STREQ(record.m_pszFullName, "[a]");
    EXPECT_STREQ(record.m_pszKeyName, "A");
    EXPECT_EQ(record.m_lRefCount.load(), 0);
    EXPECT_EQ(store.m_handles.nodeOf(2), &node);
    EXPECT_EQ(store.m_handles.recordOf(2), &record);
    EXPECT_EQ(store.m_handles.nextId(), 3u);
    base.setKeyInfo(&record, "[a]", "A", &node, nullptr);
    EXPECT_EQ(record.m_ulHandleId, 3u);
    store.m_handles.retire(2);
    store.clearKeyInfo(&record);
}

TEST_F(KeyRecord, ItsIdIsToldWhenItHasTakenItsInfo) {
    std::uint32_t id = 77;
    WatchingRecord record(id);
    store.CRegLibImpl::setKeyInfo(&record, "[a]", "a", &node, &id);
    EXPECT_EQ(record.seen, 77u);
    EXPECT_EQ(id, 2u);
    store.clearKeyInfo(&record);
}

TEST_F(KeyRecord, TheHookRunsBeforeItsIdIsUnregistered) {
    CRegKeyImplFile record;
    store.CRegLibImpl::setKeyInfo(&record, "[a]", "a", &node, nullptr);
    store.clearKeyInfo(&record);
    {
        CRegKey key;
        ASSERT_EQ(createKey(store, "a", key), REGLIB_OK);
        ASSERT_EQ(createKey(store, "a", key), REGLIB_OK);
    }
    EXPECT_EQ(store.deleted, (std::vector<unsigned long>{2, 3, 4}));
    EXPECT_EQ(store.wasListed, (std::vector<bool>{true, true, true}));
}

TEST_F(KeyRecord, TheHookRunsForTheHandleThatFindsAKeyToDelete) {
    CRegKey kept;
    ASSERT_EQ(createKey(store, "a", kept), REGLIB_OK);
    ASSERT_EQ(store.VQRegDeleteKey(*store.RootKey(), "a"), REGLIB_OK);
    EXPECT_EQ(store.deleted, std::vector<unsigned long>{3});
    EXPECT_EQ(store.wasListed, std::vector<bool>{true});
    EXPECT_EQ(store.m_handles.recordOf(3), nullptr);
    EXPECT_EQ(store.m_handles.recordOf(2), recordOf(kept));
}

TEST_F(KeyRecord, IsRegisteredThroughAHandleToo) {
    CRegKey key;
    auto* const record = new CRegKeyImplFile;
    CRegKeyAccess::put(key, record);
    record->m_lRefCount = 1;
    std::uint32_t id = 0;
    store.setKeyInfo(&key, "[x]", "x", &node, &id);
    EXPECT_EQ(id, 2u);
    EXPECT_EQ(key.GetKeyHandleID(), 2u);
    EXPECT_EQ(name(key), "x");
    EXPECT_EQ(store.m_handles.recordOf(2), record);
    EXPECT_EQ(store.m_handles.nodeOf(2), &node);
}

TEST_F(KeyRecord, IsUnregisteredByClearing) {
    CRegKeyImplFile record;
    store.CRegLibImpl::setKeyInfo(&record, "[a]", "a", &node, nullptr);
    store.clearKeyInfo(&record);
    EXPECT_EQ(store.deleted, std::vector<unsigned long>{2});
    EXPECT_EQ(store.m_handles.nodeOf(2), nullptr);
    EXPECT_EQ(store.m_handles.recordOf(2), nullptr);
    EXPECT_EQ(record.m_pRegLibImpl, nullptr);
    EXPECT_STREQ(record.m_pszKeyName, "");
}

TEST_F(KeyRecord, ClearingOneThatIsNotListedOnlyCallsTheHookAndClears) {
    CRegKeyImplFile record;
    record.SetKeyInfo(&store, "[a]", "a", 99);
    store.clearKeyInfo(&record);
    EXPECT_EQ(store.deleted, std::vector<unsigned long>{99});
    EXPECT_EQ(record.m_ulHandleId, 0u);
    EXPECT_STREQ(record.m_pszFullName, "");
    EXPECT_EQ(store.m_handles.size(), 1u);
    EXPECT_EQ(store.m_handles.nextId(), 2u);
}

TEST_F(KeyRecord, HasOneReferenceWhenHandedToACaller) {
    CRegKey key;
    ASSERT_EQ(createKey(store, "a/b", key), REGLIB_OK);
    EXPECT_EQ(recordOf(key)->m_lRefCount.load(), 1);
    CRegKey opened;
    ASSERT_EQ(openKey(store, "a", opened), REGLIB_OK);
    EXPECT_EQ(recordOf(opened)->m_lRefCount.load(), 1);
}

TEST_F(KeyRecord, HasNoReferenceWhenItWasOnlyLookedUp) {
    CRegKey key;
    ASSERT_EQ(store.VQRegFindKey(nullptr, "a", key, 1, nullptr), REGLIB_OK);
    EXPECT_EQ(recordOf(key)->m_lRefCount.load(), 0);
}

TEST_F(KeyRecord, StaysRegisteredWhileOtherHandlesUseIt) {
    CRegKeyImpl* record = nullptr;
    {
        CRegKey key;
        ASSERT_EQ(createKey(store, "a", key), REGLIB_OK);
        record = recordOf(key);
        record->m_lRefCount = 2;
    }
    EXPECT_EQ(store.m_handles.recordOf(2), record);
    EXPECT_NE(store.m_handles.nodeOf(2), nullptr);
    EXPECT_EQ(record->m_lRefCount.load(), 1);
    EXPECT_STREQ(record->m_pszKeyName, "a");
    {
        CRegKey last;
        CRegKeyAccess::put(last, record);
    }
    EXPECT_EQ(store.m_handles.recordOf(2), nullptr);
    EXPECT_EQ(store.deleted, std::vector<unsigned long>{2});
}

TEST_F(KeyRecord, IsUnregisteredByItsLastHandle) {
    {
        CRegKey key;
        ASSERT_EQ(createKey(store, "a", key), REGLIB_OK);
        EXPECT_EQ(store.m_handles.size(), 2u);
    }
    EXPECT_EQ(store.m_handles.size(), 1u);
    EXPECT_EQ(store.m_handles.nodeOf(2), nullptr);
    EXPECT_EQ(store.deleted, std::vector<unsigned long>{2});
}

TEST_F(KeyRecord, IsReleasedWhenItsHandleIsFilledAgain) {
    CRegKey key;
    ASSERT_EQ(createKey(store, "a", key), REGLIB_OK);
    ASSERT_EQ(createKey(store, "b", key), REGLIB_OK);
    EXPECT_EQ(key.GetKeyHandleID(), 3u);
    EXPECT_EQ(name(key), "b");
    EXPECT_EQ(store.m_handles.recordOf(2), nullptr);
    EXPECT_EQ(store.m_handles.size(), 2u);
}

TEST_F(KeyRecord, StaysWhenItsHandleIsFilledAgainButOthersUseIt) {
    CRegKey key;
    ASSERT_EQ(createKey(store, "a", key), REGLIB_OK);
    CRegKeyImpl* const record = recordOf(key);
    record->m_lRefCount = 2;
    ASSERT_EQ(createKey(store, "b", key), REGLIB_OK);
    EXPECT_EQ(store.m_handles.recordOf(2), record);
    CRegKey last;
    CRegKeyAccess::put(last, record);
}

TEST(KeyHandle, IsEmptyAtFirst) {
    const CRegKey key;
    EXPECT_EQ(key.GetKeyName(), nullptr);
    EXPECT_EQ(key.GetKeyFullName(), nullptr);
    EXPECT_EQ(key.GetKeyHandleID(), 0u);
    EXPECT_FALSE(std::is_copy_constructible_v<CRegKey>);
    EXPECT_FALSE(std::is_copy_assignable_v<CRegKey>);
}

TEST_F(StoreTest, AHandleThatOutlivesItsStoreHasEmptyNamesAndNoId) {
    CRegKey key;
    CRegKey notReached;
    {
        const auto shortLived = open();
        ASSERT_EQ(createKey(*shortLived, "a/b", key), REGLIB_OK);
        EXPECT_EQ(openKey(*shortLived, "a/none", notReached), REGLIB_E_KEY_NOT_FOUND);
    }
    EXPECT_STREQ(key.GetKeyName(), "");
    EXPECT_STREQ(key.GetKeyFullName(), "");
    EXPECT_EQ(key.GetKeyHandleID(), 0u);
    EXPECT_EQ(recordOf(key)->m_pRegLibImpl, nullptr);
    EXPECT_STREQ(notReached.GetKeyName(), "");
}

TEST_F(StoreTest, AHandleThatOutlivesItsStoreCanBeFilledByAnother) {
    CRegKey key;
    {
        const auto first = open();
        ASSERT_EQ(createKey(*first, "a", key), REGLIB_OK);
    }
    const auto second = open();
    ASSERT_EQ(openKey(*second, "a", key), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/a]");
    EXPECT_EQ(second->m_handles.recordOf(2), recordOf(key));
}
