#include "RegLib/store/HandleTable.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "RegLib/store/KeyRecord.h"
#include "support/StoreFixture.h"

using namespace vqtest;

namespace {

constexpr std::uint32_t kMany = 1'000'000;

// Bytes in use by the program. (The sanitizers' allocation tells nothing.)
std::size_t memoryInUse() {
    return mallinfo2().uordblks;
}

class HandleTable : public StoreTest {
protected:
    void enrollMany(std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) {
            table.enroll(&nodes[0], &records[i % 3]);
            table.advance();
        }
    }

    bool takeFirst(std::uint32_t& id, CRegKeyImpl*& record) {
        const bool isFound = table.findFirst(id, record);
        if (isFound) {
            table.retire(id);
        }
        return isFound;
    }

    void orphan(const int& node) {
        table.orphan([&](const void* other) { return other == &node; });
    }

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

TEST_F(HandleTable, RetiresAnIdAndNeverHandsItOutAgain) {
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
    orphan(nodes[0]);
    EXPECT_EQ(table.nodeOf(1), nullptr);
    EXPECT_EQ(table.nodeOf(2), &nodes[1]);
    EXPECT_EQ(table.nodeOf(3), nullptr);
    EXPECT_EQ(table.recordOf(1), &records[0]);
    EXPECT_EQ(table.recordOf(3), &records[2]);
    EXPECT_EQ(table.size(), 3u);
}

TEST_F(HandleTable, ARecordForgetsANodeThatGoesOrAnIdThatIsRetired) {
    for (int at = 0; at < 3; ++at) {
        table.enroll(&nodes[at], &records[at]);
        records[at].m_node = &nodes[at];
        table.advance();
    }
    orphan(nodes[0]);
    table.retire(2);
    EXPECT_EQ(records[0].m_node, nullptr);
    EXPECT_EQ(records[1].m_node, nullptr);
    EXPECT_EQ(records[2].m_node, &nodes[2]);
    records[2].ClearKeyInfo();
    EXPECT_EQ(records[2].m_node, nullptr);
}

TEST_F(HandleTable, AReplacedEntryIsNoLongerOfItsFirstNode) {
    table.enroll(&nodes[0], &records[0]);
    table.enroll(&nodes[1], &records[1]);
    orphan(nodes[0]);
    EXPECT_EQ(table.nodeOf(1), &nodes[1]);
    orphan(nodes[1]);
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
    ASSERT_TRUE(takeFirst(id, record));
    EXPECT_EQ(id, 1u);
    EXPECT_EQ(record, &records[0]);
    ASSERT_TRUE(takeFirst(id, record));
    EXPECT_EQ(id, 3u);
    EXPECT_EQ(record, &records[2]);
    EXPECT_FALSE(takeFirst(id, record));
    EXPECT_EQ(table.nextId(), 4u);
}

TEST_F(HandleTable, FindsNodeAndRecordAtOnce) {
    table.enroll(&nodes[1], &records[2]);
    table.advance();
    const CHandleTable::Entry* const entry = table.find(1);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->node, &nodes[1]);
    EXPECT_EQ(entry->record, &records[2]);
    orphan(nodes[1]);
    ASSERT_EQ(table.find(1), entry);
    EXPECT_EQ(entry->node, nullptr);
    EXPECT_EQ(entry->record, &records[2]);
    for (const std::uint32_t unknown : {0u, 2u, 64u, 0xFFFFFFFFu}) {
        EXPECT_EQ(table.find(unknown), nullptr) << unknown;
    }
    table.retire(1);
    EXPECT_EQ(table.find(1), nullptr);
}

TEST_F(HandleTable, KeepsEveryIdOfManyApart) {
    enrollMany(1000);
    for (std::uint32_t id = 1; id <= 1000; ++id) {
        EXPECT_EQ(table.recordOf(id), &records[(id - 1) % 3]) << id;
    }
    for (std::uint32_t id = 2; id <= 1000; id += 2) {
        table.retire(id);
    }
    EXPECT_EQ(table.size(), 500u);
    for (std::uint32_t id = 1; id <= 1000; ++id) {
        EXPECT_EQ(table.recordOf(id), id % 2 == 1 ? &records[(id - 1) % 3] : nullptr) << id;
    }
    EXPECT_EQ(table.nextId(), 1001u);
}

// A process may open and close keys for years.
TEST_F(HandleTable, AMillionIdsThatComeAndGoCostNextToNoMemory) {
    table.enroll(&nodes[0], &records[0]);
    table.advance();
    const std::size_t before = memoryInUse();
    for (std::uint32_t i = 1; i < kMany; ++i) {
        const std::uint32_t id = table.nextId();
        table.enroll(&nodes[1], &records[1]);
        table.advance();
        table.retire(id);
    }
    EXPECT_EQ(table.size(), 1u);
    EXPECT_EQ(table.nextId(), kMany + 1);
    EXPECT_EQ(table.recordOf(1), &records[0]);
    EXPECT_LT(memoryInUse() - before, kMany / 4) << "two bits an id";
}

TEST_F(HandleTable, AMillionIdsThatWereOpenAtOnceGiveTheirMemoryBack) {
    const std::size_t before = memoryInUse();
    enrollMany(kMany);
    EXPECT_EQ(table.size(), kMany);
    for (std::uint32_t id = kMany; id >= 1; --id) {
        table.retire(id);
    }
    EXPECT_EQ(table.size(), 0u);
    EXPECT_LT(memoryInUse() - before, kMany / 4) << "two bits an id";
    table.enroll(&nodes[2], &records[2]);
    EXPECT_EQ(table.recordOf(kMany + 1), &records[2]);
}

TEST_F(HandleTable, TakesTheFirstOfThoseThatAreLeft) {
    enrollMany(300);
    std::uint32_t id = 0;
    CRegKeyImpl* record = nullptr;
    ASSERT_TRUE(takeFirst(id, record));
    EXPECT_EQ(id, 1u);
    for (std::uint32_t retired = 2; retired < 250; ++retired) {
        table.retire(retired);
    }
    ASSERT_TRUE(takeFirst(id, record));
    EXPECT_EQ(id, 250u);
    table.enroll(&nodes[0], &records[0]);  // not advanced: it counts all the same
    for (std::uint32_t next = 251; next <= 301; ++next) {
        ASSERT_TRUE(takeFirst(id, record));
        EXPECT_EQ(id, next);
    }
    EXPECT_FALSE(takeFirst(id, record));
    EXPECT_EQ(table.nextId(), 301u);
}

TEST_F(HandleTable, AnEntryOfAFailedRegistrationLosesItsNodeAndThenLeaves) {
    enrollMany(63);  // the next id is the first one of a chunk
    table.enroll(&nodes[1], &records[1]);
    table.clearPendingNode();
    EXPECT_EQ(table.nodeOf(64), nullptr);
    EXPECT_EQ(table.recordOf(64), &records[1]);
    table.retirePending(&records[0]);
    EXPECT_EQ(table.recordOf(64), &records[1]) << "it is another record's";
    table.retirePending(&records[1]);
    EXPECT_EQ(table.recordOf(64), nullptr);
    EXPECT_EQ(table.nextId(), 64u);
    EXPECT_EQ(table.enroll(&nodes[2], &records[2]), nullptr);
    table.advance();
    EXPECT_EQ(table.nodeOf(64), &nodes[2]);
}

TEST_F(HandleTable, WithoutAnEntryOfTheNextIdThereIsNothingPending) {
    table.clearPendingNode();
    table.retirePending(&records[0]);
    EXPECT_EQ(table.size(), 0u);
    EXPECT_EQ(table.nextId(), 1u);
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
