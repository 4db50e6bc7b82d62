// Names that a look-up does not find on the straight way.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <unordered_map>

#include "RegLib/base/HashedName.h"
#include "unit/tree/TreeFixture.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

class Finding : public TreeFixture {};

// Two names of one length that the index takes for the same until it has looked at them.
struct Pair {
    std::string one;
    std::string other;
};

Pair namesOfOneHash(const CKeyOrValue& parent) {
    std::unordered_map<std::uint32_t, std::string> seen;
    for (int number = 1'000'000; number < 2'000'000; ++number) {
        const std::string name = "n" + std::to_string(number);
        const auto [known, isNew] =
            seen.try_emplace(CNameIndex::hashOf(parent, CHashedName(name).hash()), name);
        if (!isNew) {
            return {known->second, name};
        }
    }
    return {};
}

}  // namespace

TEST_F(Finding, TellsNamesOfOneHashApart) {
    CKeyOrValue& top = key("Top");
    const Pair pair = namesOfOneHash(top);
    ASSERT_NE(pair.one, pair.other);
    CKeyOrValue& one = value(top, pair.one, "1");
    EXPECT_EQ(find(top, pair.other), nullptr);
    CKeyOrValue& other = value(top, pair.other, "2");
    EXPECT_EQ(find(top, pair.one), &one);
    EXPECT_EQ(find(top, pair.other), &other);
    EXPECT_EQ(find(top, "N" + pair.one.substr(1)), &one);
    EXPECT_EQ(find(top, "N" + pair.other.substr(1)), &other);
    tree.remove(one);
    EXPECT_EQ(find(top, pair.one), nullptr);
    EXPECT_EQ(find(top, pair.other), &other);
}

TEST_F(Finding, FindsNamesOfEachLengthInAnySpelling) {
    CKeyOrValue& top = key("Top");
    for (std::size_t size = 1; size <= 50; ++size) {
        value(top, std::string(size, 'n'), "x");
    }
    for (std::size_t size = 1; size <= 50; ++size) {
        CKeyOrValue* const found = find(top, std::string(size, 'n'));
        ASSERT_TRUE(found) << size;
        EXPECT_EQ(tree.nameOf(*found).size(), size);
        EXPECT_EQ(find(top, std::string(size, 'N')), found);
        EXPECT_EQ(find(top, std::string(size - 1, 'n') + 'N'), found);
        EXPECT_EQ(find(top, std::string(size - 1, 'n') + 'm'), nullptr);
    }
    EXPECT_EQ(find(top, ""), nullptr);
}

// The line says another spelling than the name.
TEST_F(Finding, FindsANameThatLiesApartFromItsLine) {
    CKeyOrValue& top = key("Top");
    CKeyOrValue& port = value(top, "Port", "1");
    set(port, "pORT", "2");
    EXPECT_EQ(tree.nameOf(port), "Port");
    for (const char* const spelled : {"Port", "pORT", "port"}) {
        EXPECT_EQ(find(top, spelled), &port);
    }
    EXPECT_EQ(find(top, "Part"), nullptr);
}

TEST_F(Finding, KnowsItsRootByNoName) {
    EXPECT_EQ(find(tree.root(), "<root>"), nullptr);
    CKeyOrValue& named = key("<root>");
    EXPECT_EQ(find(tree.root(), "<root>"), &named);
    EXPECT_EQ(find(tree.root(), "<ROOT>"), &named);
}
