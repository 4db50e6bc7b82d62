// What is different between two trees; what watches find in files is in CWatchTest.
#include "RegLib/c/Differences.h"

#include <gtest/gtest.h>

#include <deque>

using namespace VQRegLib;

namespace {

// A tree with one key, and a value in it.
struct COfOneValue {
    COfOneValue(CRegLib::eDataType type, std::string_view line) {
        tree.addValue(key, CHashedName("V"), type, line);
    }

    CTree tree;
    CKeyOrValue& key = tree.addKey(tree.root(), CHashedName("Key"));
};

}  // namespace

// No reader makes such a line; whoever changes what a line is must not make the library read behind it.
TEST(Differences, AValueWhoseLineHasNoDataIsOneWithoutAnyBytes) {
    const COfOneValue before(CRegLib::eString, "\"V\"=string");
    const COfOneValue after(CRegLib::eString, "\"V\"=string:text");
    std::deque<CDifference> found;
    findDifferences({&before.tree, &before.key}, {&after.tree, &after.key}, "Key", found);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].before.type, CRegLib::eString);
    EXPECT_EQ(found[0].before.data, "");
    EXPECT_EQ(found[0].after.data, std::string("text", 5));
}

TEST(Differences, AreNoneBetweenLinesThatSayTheSame) {
    const COfOneValue before(CRegLib::eDword, "\"V\"=dword:7");
    const COfOneValue after(CRegLib::eDword, "\"v\"=dword:00000007");
    std::deque<CDifference> found;
    findDifferences({&before.tree, &before.key}, {&after.tree, &after.key}, "Key", found);
    EXPECT_TRUE(found.empty());
}
