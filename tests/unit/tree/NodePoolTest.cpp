#include "RegLib/tree/NodePool.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

using namespace VQRegLib;

namespace {

std::set<NodeNumber> numbersIn(const CNodePool& pool) {
    std::set<NodeNumber> numbers;
    pool.forEach([&](const CKeyOrValue& node) { numbers.insert(node.m_number); });
    return numbers;
}

}  // namespace

TEST(NodePool, CountsFromOne) {
    CNodePool pool;
    EXPECT_EQ(pool.take().m_number, 1u);
    EXPECT_EQ(pool.take().m_number, 2u);
    EXPECT_EQ(pool.size(), 2u);
}

TEST(NodePool, HasRoomForWhatIsExpected) {
    for (const std::size_t more : {1u, 511u, 512u, 513u, 5000u, 100000u}) {
        CNodePool pool;
        pool.expect(more);
        ASSERT_GE(pool.room(), more);
        ASSERT_LE(pool.room(), more + 1024);
        const std::size_t room = pool.room();
        for (std::size_t taken = 0; taken < room; ++taken) {
            pool.take();
        }
        ASSERT_EQ(pool.room(), 0u);
        ASSERT_EQ(numbersIn(pool).size(), room);
    }
}

TEST(NodePool, UsesWhatItHasBeforeItAsksForMore) {
    CNodePool pool;
    for (int round = 0; round < 1000; ++round) {
        pool.expect(1000);
        pool.take();
        ASSERT_LE(pool.size() + pool.room(), 4096u) << round;
    }
    CKeyOrValue& node = pool.take();
    const std::size_t room = pool.room();
    pool.give(node);
    EXPECT_EQ(pool.room(), room + 1);
    pool.expect(room + 1);
    EXPECT_EQ(pool.room(), room + 1);
}

TEST(NodePool, LeavesNodesWhereTheyAre) {
    CNodePool pool;
    std::vector<CKeyOrValue*> nodes;
    for (NodeNumber number = 1; number <= 5000; ++number) {
        nodes.push_back(&pool.take());
        nodes.back()->m_parent = 7 * number;
    }
    for (NodeNumber number = 1; number <= 5000; ++number) {
        ASSERT_EQ(&pool[number], nodes[number - 1]);
        ASSERT_EQ(pool[number].m_number, number);
        ASSERT_EQ(pool[number].m_parent, 7 * number);
    }
    EXPECT_EQ(pool.size(), 5000u);
}

TEST(NodePool, GivesOutFreedNumbersBeforeNewOnes) {
    CNodePool pool;
    for (int count = 0; count < 600; ++count) {
        pool.take();
    }
    for (const NodeNumber number : {3u, 600u, 17u}) {
        pool.give(pool[number]);
    }
    EXPECT_EQ(pool.size(), 597u);
    std::set<NodeNumber> again;
    for (int count = 0; count < 3; ++count) {
        again.insert(pool.take().m_number);
    }
    EXPECT_EQ(again, (std::set<NodeNumber>{3, 17, 600}));
    EXPECT_EQ(pool.take().m_number, 601u);
}

TEST(NodePool, MakesFreedNodesAnew) {
    CNodePool pool;
    pool.take();
    CKeyOrValue& used = pool.take();
    used.m_line = "[k]";
    used.m_lineSize = 3;
    used.m_nameAt = 1;
    used.m_children = 4;
    used.m_iIsKey = 1;
    used.m_ulKeyHandleID = 9;
    used.m_state = CKeyOrValue::eGone;
    pool.give(used);
    const CKeyOrValue& again = pool.take();
    ASSERT_EQ(&again, &used);
    EXPECT_EQ(again.line(), "");
    EXPECT_EQ(again.m_nameAt, CKeyOrValue::kNameApart);
    EXPECT_EQ(again.m_children, 0u);
    EXPECT_EQ(again.m_parent, 0u);
    EXPECT_EQ(again.m_ulKeyHandleID, 0u);
    EXPECT_FALSE(again.isKey());
    EXPECT_EQ(again.m_state, CKeyOrValue::eInTree);
}

TEST(NodePool, GoesThroughTheTakenNodesOnly) {
    CNodePool pool;
    EXPECT_EQ(numbersIn(pool), std::set<NodeNumber>{});
    for (int count = 0; count < 5; ++count) {
        pool.take();
    }
    pool.give(pool[1]);
    pool.give(pool[4]);
    EXPECT_EQ(numbersIn(pool), (std::set<NodeNumber>{2, 3, 5}));
}
