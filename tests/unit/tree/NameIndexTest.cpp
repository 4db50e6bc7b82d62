#include "RegLib/tree/NameIndex.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <new>
#include <random>
#include <set>

#include "RegLib/base/HashedName.h"

using namespace VQRegLib;

namespace {

// All nodes under a hash.
std::set<NodeNumber> allUnder(const CNameIndex& index, std::uint32_t hash) {
    std::set<NodeNumber> found;
    for (const auto* at = index.firstOf(hash); at->node != 0; at = index.nextOf(hash, at)) {
        EXPECT_EQ(at->hash, hash);
        found.insert(at->node);
    }
    return found;
}

NodeNumber findIn(const CNameIndex& index, std::uint32_t hash, NodeNumber node) {
    return allUnder(index, hash).contains(node) ? node : 0;
}

void addTo(CNameIndex& index, std::uint32_t hash, NodeNumber node) {
    index.reserve(1);
    index.add(hash, node);
}

}  // namespace

TEST(NameIndex, FindsNothingWhileItIsEmpty) {
    const CNameIndex index;
    for (const std::uint32_t hash : {0u, 1u, 0xFFFFFFFFu}) {
        EXPECT_EQ(index.firstOf(hash)->node, 0u);
    }
}

TEST(NameIndex, AsksOnlyForNodesUnderTheHash) {
    CNameIndex index;
    addTo(index, 5, 1);
    addTo(index, 5, 2);
    addTo(index, 6, 3);
    EXPECT_EQ(allUnder(index, 5), (std::set<NodeNumber>{1, 2}));
    EXPECT_EQ(allUnder(index, 6), std::set<NodeNumber>{3});
    EXPECT_EQ(allUnder(index, 7), std::set<NodeNumber>{});
}

TEST(NameIndex, GivesAPlaceToAnotherNode) {
    CNameIndex index;
    addTo(index, 5, 1);
    addTo(index, 5, 2);
    index.replace(5, 2, 9);
    EXPECT_EQ(allUnder(index, 5), (std::set<NodeNumber>{1, 9}));
}

// Hashes whose homes are the first and the last places of any table: chains go over its end.
TEST(NameIndex, KeepsChainsWholeWhenPartsOfThemGo) {
    const std::uint32_t hashes[] = {0, 1, 2, 0xFFFFFFFF, 0xFFFFFFFE, 0xF8000000, 0x08000000};
    std::mt19937 random(3);
    CNameIndex index;
    std::map<std::uint32_t, std::set<NodeNumber>> expected;
    NodeNumber next = 1;
    for (int round = 0; round < 20000; ++round) {
        const std::uint32_t hash = hashes[random() % std::size(hashes)];
        std::set<NodeNumber>& under = expected[hash];
        if (random() % 2 == 0 && next % 64 != 0 && under.size() < 6) {
            addTo(index, hash, next);
            under.insert(next++);
        } else if (!under.empty()) {
            index.remove(hash, *under.begin());
            under.erase(under.begin());
        }
        next += next % 64 == 0 ? 1 : 0;
        for (const std::uint32_t any : hashes) {
            ASSERT_EQ(allUnder(index, any), expected[any]) << round;
        }
    }
}

TEST(NameIndex, HoldsWhatAMapHoldsWhileItGrowsAndShrinks) {
    std::mt19937 random(4);
    CNameIndex index;
    std::map<NodeNumber, std::uint32_t> expected;
    for (NodeNumber round = 1; round < 60000; ++round) {
        const bool isGrowing = round / 10000 % 2 == 0;
        if (isGrowing || expected.empty() || random() % 4 == 0) {
            const auto hash = static_cast<std::uint32_t>(random());
            addTo(index, hash, round);
            expected.emplace(round, hash);
        } else {
            auto gone = expected.lower_bound(static_cast<NodeNumber>(random() % round));
            gone = gone == expected.end() ? expected.begin() : gone;
            index.remove(gone->second, gone->first);
            ASSERT_EQ(findIn(index, gone->second, gone->first), 0u);
            expected.erase(gone);
        }
    }
    ASSERT_GT(expected.size(), 1000u);
    for (const auto& [node, hash] : expected) {
        ASSERT_EQ(findIn(index, hash, node), node);
    }
}

TEST(NameIndex, TellsApartTheSameNameBelowManyParents) {
    const std::uint64_t name = CHashedName("Port").hash();
    std::set<std::uint32_t> hashes;
    const std::vector<CKeyOrValue> parents(1000);
    for (const CKeyOrValue& parent : parents) {
        hashes.insert(CNameIndex::hashOf(parent, name));
    }
    EXPECT_GT(hashes.size(), 990u);
}

TEST(NameIndex, HasNoRoomForMoreThanItsNumbersCanSay) {
    CNameIndex index;
    addTo(index, 7, 3);
    // The first ones would fit if no place had to stay free.
    for (const std::size_t more :
         {std::size_t{0xF0000000}, std::size_t{0xFFFFFFFF}, std::size_t{SIZE_MAX} / 2}) {
        EXPECT_THROW(index.reserve(more), std::bad_alloc);
    }
    EXPECT_EQ(findIn(index, 7, 3), 3u);
    addTo(index, 8, 4);
    EXPECT_EQ(findIn(index, 8, 4), 4u);
}
