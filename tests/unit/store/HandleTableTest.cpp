#include "RegLib/store/HandleTable.h"

#include <gtest/gtest.h>

#include "RegLib/store/KeyRecord.h"
#include "support/StoreFixture.h"

using namespace vqtest;

namespace {

class HandleTable : public StoreTest {
protected:
    CHandleTable table;
    int nodes[3] = {};
    CRegKeyImplFile records[3];
};

class HandleIds : public StoreTest {};

}  // namespace

TEST_F(HandleTable, StartsEmptyWithTheIdOne) {
    EXPECT_EQ(table.nextId(), 1u);
    EXPECT_EQ(table.size(), 0u);
    EXPECT_EQ(table.nodeOf(1), nullptr);
    EXPECT_EQ(table.recordOf(1), nullptr);
}

TEST_F(HandleTable, EnrollsUnderTheNextIdUntilItIsAdvanced) {
    EXPECT_EQ(table.enroll(&nodes[0], &records[0]), nullptr);
    EXPECT_EQ(table.nextId(), 1u);
    EXPECT_EQ(table.enroll(&nodes[1], &records[1]), &records[0]);
    EXPECT_EQ(table.nodeOf(1), &nodes[1]);
    EXPECT_EQ(table.recordOf(1), &records[1]);
    EXPECT_EQ(table.size(), 1u);
    table.advance();
    EXPECT_EQ(table.enroll(&nodes[2], &records[2]), nullptr);
    EXPECT_EQ(table.nodeOf(2), &nodes[2]);
    EXPECT_EQ(table.size(), 2u);
}

TEST_F(HandleTable, RetiresAnIdFromBothMapsAndNeverHandsItOutAgain) {
    table.enroll(&nodes[0], &records[0]);
    table.advance();
    table.retire(1);
    EXPECT_EQ(table.nodeOf(1), nullptr);
    EXPECT_EQ(table.recordOf(1), nullptr);
    EXPECT_EQ(table.size(), 0u);
    EXPECT_EQ(table.nextId(), 2u);
}

TEST_F(HandleTable, RetiringAnUnknownIdChangesNothing) {
    table.enroll(&nodes[0], &records[0]);
    table.advance();
    table.retire(0);
    table.retire(7);
    EXPECT_EQ(table.recordOf(1), &records[0]);
    EXPECT_EQ(table.size(), 1u);
}

TEST_F(HandleTable, OrphansAllIdsOfANodeAndKeepsTheirRecords) {
    for (CRegKeyImplFile& record : records) {
        table.enroll(&record == &records[1] ? &nodes[1] : &nodes[0], &record);
        table.advance();
    }
    table.orphan(&nodes[0]);
    EXPECT_EQ(table.nodeOf(1), nullptr);
    EXPECT_EQ(table.nodeOf(2), &nodes[1]);
    EXPECT_EQ(table.nodeOf(3), nullptr);
    EXPECT_EQ(table.recordOf(1), &records[0]);
    EXPECT_EQ(table.recordOf(3), &records[2]);
    EXPECT_EQ(table.size(), 3u);
}

TEST_F(HandleTable, MovesAllIdsOfANodeToAnother) {
    for (CRegKeyImplFile& record : records) {
        table.enroll(&record == &records[1] ? &nodes[1] : &nodes[0], &record);
        table.advance();
    }
    table.move(&nodes[0], &nodes[2]);
    EXPECT_EQ(table.nodeOf(1), &nodes[2]);
    EXPECT_EQ(table.nodeOf(2), &nodes[1]);
    EXPECT_EQ(table.nodeOf(3), &nodes[2]);
    table.orphan(&nodes[0]);
    EXPECT_EQ(table.nodeOf(1), &nodes[2]) << "nothing is left of the first";
    table.orphan(&nodes[2]);
    EXPECT_EQ(table.nodeOf(1), nullptr);
    EXPECT_EQ(table.nodeOf(3), nullptr);
    EXPECT_EQ(table.nodeOf(2), &nodes[1]);
}

TEST_F(HandleTable, AReplacedEntryIsNoLongerOfItsFirstNode) {
    table.enroll(&nodes[0], &records[0]);
    table.enroll(&nodes[1], &records[1]);
    table.orphan(&nodes[0]);
    EXPECT_EQ(table.nodeOf(1), &nodes[1]);
    table.orphan(&nodes[1]);
    EXPECT_EQ(table.nodeOf(1), nullptr);
}

TEST_F(HandleTable, TakesItsEntriesInTheOrderOfTheirIds) {
    for (CRegKeyImplFile& record : records) {
        table.enroll(&nodes[0], &record);
        table.advance();
    }
    table.retire(2);
    std::uint32_t id = 0;
    CRegKeyImpl* record = nullptr;
    ASSERT_TRUE(table.takeFirst(id, record));
    EXPECT_EQ(id, 1u);
    EXPECT_EQ(record, &records[0]);
    ASSERT_TRUE(table.takeFirst(id, record));
    EXPECT_EQ(id, 3u);
    EXPECT_EQ(record, &records[2]);
    EXPECT_FALSE(table.takeFirst(id, record));
    EXPECT_EQ(table.nextId(), 4u);
}

TEST_F(HandleIds, BeginWithThoseOfTheRootKey) {
    const auto store = open();
    EXPECT_EQ(store->RootKey()->GetKeyHandleID(), 1u);
    CRegKey key;
    ASSERT_EQ(createKey(*store, "a", key), REGLIB_OK);
    EXPECT_EQ(key.GetKeyHandleID(), 2u);
}

TEST_F(HandleIds, ARootKeyOfTwoNamesHasTheSecondId) {
    const auto store = open("Velquist/Logging");
    EXPECT_EQ(store->RootKey()->GetKeyHandleID(), 2u);
    EXPECT_STREQ(store->RootKey()->GetKeyName(), "Logging");
    EXPECT_STREQ(store->RootKey()->GetKeyFullName(), "[Velquist/Logging]");
    // The record of the first level was never handed out and stays listed.
    EXPECT_EQ(store->m_handles.size(), 2u);
    EXPECT_NE(store->m_handles.nodeOf(1), nullptr);
    EXPECT_EQ(store->m_handles.recordOf(1)->m_lRefCount.load(), -1);
}

TEST_F(HandleIds, DifferForTwoHandlesOnOneKey) {
    const auto store = open();
    CRegKey first;
    CRegKey second;
    ASSERT_EQ(createKey(*store, "a", first), REGLIB_OK);
    ASSERT_EQ(openKey(*store, "A", second), REGLIB_OK);
    EXPECT_EQ(first.GetKeyHandleID(), 2u);
    EXPECT_EQ(second.GetKeyHandleID(), 3u);
    EXPECT_EQ(store->m_handles.nodeOf(2), store->m_handles.nodeOf(3));
    EXPECT_NE(store->m_handles.recordOf(2), store->m_handles.recordOf(3));
    EXPECT_EQ(store->m_handles.size(), 3u);
}

TEST_F(HandleIds, CountFromOneInEveryStore) {
    const auto store = open();
    const TempStore otherFile;
    const CRegLibImplFile other(otherFile.path().c_str(), nullptr, CRegLib::eLocationDefault,
                                nullptr);
    EXPECT_EQ(store->RootKey()->GetKeyHandleID(), 1u);
    EXPECT_EQ(other.RootKey()->GetKeyHandleID(), 1u);
}

TEST_F(HandleIds, ANodeRemembersTheLatestOne) {
    const auto store = open();
    const CFileStoreProbe probe(*store);
    CRegKey first;
    CRegKey second;
    createKey(*store, "a", first);
    EXPECT_EQ(probe.node({"velquist", "a"})->m_ulKeyHandleID, 2u);
    openKey(*store, "a", second);
    EXPECT_EQ(probe.node({"velquist", "a"})->m_ulKeyHandleID, 3u);
}
