#include "RegLib/tree/Siblings.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace VQRegLib;

namespace {

// The list and a plain one. Their numbers rise by twos, so that places between them can be sought.
class Both {
public:
    void insert(std::size_t index, NodeNumber node) {
        m_siblings.insert(index, node);
        m_plain.insert(m_plain.begin() + static_cast<std::ptrdiff_t>(index), node);
    }
    void erase(std::size_t index) {
        m_siblings.erase(index);
        m_plain.erase(m_plain.begin() + static_cast<std::ptrdiff_t>(index));
    }
    void replace(std::size_t index, NodeNumber node) {
        m_siblings.replace(index, node);
        m_plain[index] = node;
    }
    std::size_t size() const { return m_plain.size(); }
    const CSiblings& siblings() const { return m_siblings; }

    void expectSame() const {
        ASSERT_EQ(m_siblings.size(), m_plain.size());
        ASSERT_EQ(m_siblings.empty(), m_plain.empty());
        for (std::size_t index = 0; index < m_plain.size(); ++index) {
            ASSERT_EQ(m_siblings.at(index), m_plain[index]) << index;
        }
        if (!m_plain.empty()) {
            ASSERT_EQ(m_siblings.back(), m_plain.back());
        }
    }

private:
    CSiblings m_siblings;
    std::vector<NodeNumber> m_plain;
};

std::size_t countBelow(const CSiblings& siblings, NodeNumber limit) {
    return siblings.countBefore([&](NodeNumber node) { return node < limit; });
}

}  // namespace

TEST(Siblings, AreNoneAtFirst) {
    const CSiblings siblings;
    EXPECT_TRUE(siblings.empty());
    EXPECT_EQ(countBelow(siblings, 1), 0u);
}

TEST(Siblings, StandWhereAPlainListHasThem) {
    std::mt19937 random(5);
    Both both;
    for (NodeNumber round = 1; round <= 30000; ++round) {
        const bool isGrowing = round / 8000 % 2 == 0;
        const std::size_t place = random() % (both.size() + 1);
        if (both.size() > 0 && random() % 4 == 0) {
            both.replace(place % both.size(), round);
        } else if (isGrowing || both.size() == 0 || random() % 8 == 0) {
            both.insert(place, round);
        } else {
            both.erase(place % both.size());
        }
        if (round % 1000 == 0) {
            ASSERT_NO_FATAL_FAILURE(both.expectSame());
        }
    }
}

TEST(Siblings, MayAllGoAndComeAgain) {
    for (const std::size_t most : {1u, 3u, 2048u, 2049u, 7000u}) {
        Both both;
        for (int round = 0; round < 2; ++round) {
            while (both.size() < most) {
                both.insert(both.size() / 2, static_cast<NodeNumber>(both.size() + 1));
            }
            ASSERT_NO_FATAL_FAILURE(both.expectSame());
            while (both.size() > 0) {
                both.erase(both.size() % 3 == 0 ? both.size() - 1 : 0);
            }
            ASSERT_NO_FATAL_FAILURE(both.expectSame());
        }
    }
}

TEST(Siblings, AreCountedUpToAnyPlace) {
    for (const NodeNumber count : {1u, 7u, 2048u, 2049u, 5000u}) {
        CSiblings siblings;
        for (NodeNumber number = 0; number < count; ++number) {
            siblings.insert(number, 2 * number);
        }
        for (NodeNumber limit = 0; limit <= 2 * count; ++limit) {
            ASSERT_EQ(countBelow(siblings, limit), (limit + 1) / 2) << count;
        }
        EXPECT_EQ(countBelow(siblings, 3 * count), count);
    }
}

// Each one at the very front is the worst case of one long array.
TEST(Siblings, AreLookedAtSeldomWhenOneIsSought) {
    CSiblings siblings;
    constexpr NodeNumber kCount = 100000;
    for (NodeNumber number = kCount; number > 0; --number) {
        siblings.insert(0, number);
    }
    std::size_t looks = 0;
    const auto isBefore = [&](NodeNumber node) {
        ++looks;
        return node < kCount - 10;
    };
    EXPECT_EQ(siblings.countBefore(isBefore), kCount - 11);
    EXPECT_LT(looks, 300u);
}

TEST(Siblings, HaveNoRoomForARunBeyondOneArray) {
    CSiblings siblings;
    const std::size_t most = siblings.roomForRun();
    EXPECT_FALSE(siblings.makeRoom(most + 1));
    ASSERT_TRUE(siblings.makeRoom(most - 1));
    siblings.appendRun(1, most - 1);
    EXPECT_EQ(siblings.roomForRun(), 1u);
    EXPECT_FALSE(siblings.makeRoom(2));
    EXPECT_TRUE(siblings.makeRoom(1));
    siblings.append(static_cast<NodeNumber>(most));
    EXPECT_FALSE(siblings.makeRoom(1));
    siblings.append(static_cast<NodeNumber>(most + 1));
    EXPECT_EQ(siblings.roomForRun(), 0u);
    EXPECT_FALSE(siblings.makeRoom(0)) << "they are in more than one";
    ASSERT_EQ(siblings.size(), most + 1);
    for (std::size_t index = 0; index <= most; ++index) {
        ASSERT_EQ(siblings.at(index), index + 1);
    }
}
