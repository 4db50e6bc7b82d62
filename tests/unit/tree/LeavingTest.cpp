// How nodes leave the tree, and what handles still have of them.
#include <gtest/gtest.h>

#include "unit/tree/TreeFixture.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

class Leaving : public TreeFixture {
protected:
    // What a key has that a value line of the file takes the name of.
    Node& displacedKey() {
        merge("[Top]\n[Top/k]\n\"v\"=string:x\n[Top/k/below]\n");
        Node& old = withHandle(*find(*find(tree.root(), "Top"), "k"));
        merge("[Top]\n\"K\"=string:y\n");
        return old;
    }
    Node& top() { return *find(tree.root(), "Top"); }
};

}  // namespace

TEST_F(Leaving, TakesAllBelowAlong) {
    Node& parent = key("Top");
    Node& gone = key(parent, "gone");
    value(gone, "v", "x");
    key(key(gone, "deep"), "deeper");
    value(parent, "stays", "y");
    textOf(tree);
    const std::size_t size = tree.size();
    tree.remove(gone);
    EXPECT_EQ(textOf(tree), "[Top]\n\"stays\"=string:y\n");
    EXPECT_EQ(find(parent, "gone"), nullptr);
    EXPECT_EQ(tree.size(), size - 4);
    EXPECT_EQ(tree.gone(), 0u) << "no handle refers to any of them";
    key(parent, "gone");
    EXPECT_EQ(textOf(tree), "[Top]\n\"stays\"=string:y\n[Top/gone]\n");
}

TEST_F(Leaving, TakesValuesAndEmptyKeysOutOfTheText) {
    Node& parent = key("Top");
    Node& a = value(parent, "a", "1");
    Node& b = value(parent, "b", "2");
    Node& k = key(parent, "k");
    textOf(tree);
    const char* const block = tree.text().front().data();
    tree.remove(a);
    EXPECT_EQ(textOf(tree), "[Top]\n\"b\"=string:2\n[Top/k]\n");
    tree.remove(k);
    EXPECT_EQ(textOf(tree), "[Top]\n\"b\"=string:2\n");
    tree.remove(b);
    EXPECT_EQ(textOf(tree), "[Top]\n");
    EXPECT_EQ(tree.text().front().data(), block) << "not made anew";
    tree.remove(parent);
    EXPECT_EQ(textOf(tree), "");
}

TEST_F(Leaving, KeepsKeysWithHandlesUntilTheyAreSwept) {
    Node& parent = withHandle(key("Top"));
    Node& below = withHandle(key(parent, "k"));
    value(below, "v", "x");
    const NodeNumber numbers[] = {parent.m_number, below.m_number};
    tree.remove(parent);
    EXPECT_EQ(tree.gone(), 2u);
    EXPECT_EQ(parent.m_state, CKeyOrValue::eGone);
    EXPECT_EQ(below.m_state, CKeyOrValue::eGone);
    EXPECT_EQ(tree.nameOf(below), "k");
    for (int added = 0; added < 100; ++added) {
        const NodeNumber number = key("new" + std::to_string(added)).m_number;
        ASSERT_TRUE(number != numbers[0] && number != numbers[1]) << "a handle refers to it";
    }
    const std::size_t size = tree.size();
    tree.sweep();
    EXPECT_EQ(tree.gone(), 0u);
    EXPECT_EQ(tree.size(), size - 2);
    EXPECT_TRUE(key("again").m_number == numbers[0] || key("more").m_number == numbers[0]);
}

TEST_F(Leaving, KeepsTheLinesOfKeysThatAreGoneWhenTheTextIsMadeAnew) {
    Node& gone = withHandle(key("Top"));
    tree.remove(gone);
    merge("[A]\n");
    textOf(tree);
    merge("[B]\n");
    EXPECT_EQ(gone.line(), "[Top]");
    EXPECT_EQ(tree.nameOf(gone), "Top");
}

TEST_F(Leaving, GivesANameToAValueAndKeepsAKeyThatHasAHandle) {
    Node& old = displacedKey();
    EXPECT_EQ(tree.displaced(), 1u);
    EXPECT_EQ(old.m_state, CKeyOrValue::eDisplaced);
    EXPECT_EQ(textOf(tree), "[Top]\n\"K\"=string:y\n");
    EXPECT_FALSE(find(top(), "k")->isKey());
    EXPECT_EQ(tree.countOfKind(top(), true), 0u);
    EXPECT_EQ(dumpOf(tree, old),
              "0 key 0 {k} [Top/k]\n1 key 0 {below} [Top/k/below]\n1 value 3 {v} \"v\"=string:x\n");
}

TEST_F(Leaving, LetsADisplacedKeyBeWorkedWith) {
    Node& old = displacedKey();
    Node& added = value(old, "more", "z");
    set(*find(old, "v"), "v", "another");
    set(added, "MORE", "zz");
    EXPECT_EQ(key(old, "new").line(), "[Top/k/new]");
    tree.remove(*find(old, "below"));
    EXPECT_EQ(textOf(tree), "[Top]\n\"K\"=string:y\n");
    merge("[Top]\n\"K\"=string:y\n[Other]\n");
    EXPECT_EQ(names(old, false), "more|v|");
    EXPECT_EQ(names(old, true), "new|");
    EXPECT_EQ(find(old, "v")->line(), "\"v\"=string:another");
    EXPECT_EQ(textOf(tree), "[Other]\n[Top]\n\"K\"=string:y\n");
}

TEST_F(Leaving, LetsADisplacedKeyBeDeleted) {
    Node& old = displacedKey();
    tree.remove(old);
    EXPECT_EQ(tree.displaced(), 0u);
    EXPECT_EQ(tree.gone(), 1u);
    EXPECT_EQ(old.m_state, CKeyOrValue::eGone);
    EXPECT_EQ(textOf(tree), "[Top]\n\"K\"=string:y\n") << "the value is another";
    tree.sweep();
    EXPECT_EQ(tree.size(), 3u);
}

TEST_F(Leaving, FreesADisplacedKeyThatNobodyHas) {
    merge("[Top]\n[Top/k]\n\"v\"=string:x\n[Top/k/below]\n");
    merge("[Top]\n\"K\"=string:y\n");
    EXPECT_EQ(tree.displaced(), 0u);
    EXPECT_EQ(tree.gone(), 0u);
    EXPECT_EQ(tree.size(), 3u);
}

TEST_F(Leaving, KeepsAKeyWhenOnlyOneBelowItHasAHandle) {
    merge("[Top]\n[Top/k]\n[Top/k/below]\n");
    Node& below = withHandle(*find(*find(top(), "k"), "below"));
    merge("[Top]\n\"K\"=string:y\n");
    EXPECT_EQ(tree.displaced(), 1u);
    EXPECT_EQ(below.m_state, CKeyOrValue::eInTree);
    EXPECT_EQ(value(below, "v", "x").line(), "\"v\"=string:x");
    EXPECT_EQ(textOf(tree), "[Top]\n\"K\"=string:y\n");
}

TEST_F(Leaving, KeepsTheNamesAboveADisplacedKeyForAsLongAsItLives) {
    Node& old = displacedKey();
    Node& parent = top();
    tree.remove(parent);
    EXPECT_EQ(tree.gone(), 1u) << "the key above, though it has no handle";
    tree.sweep();
    EXPECT_EQ(tree.gone(), 1u);
    EXPECT_EQ(key(old, "new").line(), "[Top/k/new]");
    tree.remove(old);
    tree.sweep();
    EXPECT_EQ(tree.gone(), 0u);
    EXPECT_EQ(tree.size(), 1u);
}

TEST_F(Leaving, ReducesATreeToWhatAnotherHas) {
    merge("[Top]\n\"a\"=string:1\n\"b\"=string:1\n[Top/k]\n[Top/k/x]\n[Top/l]\n[Top/m]\n");
    CTree other;
    TextOf text("[TOP]\n\"B\"=string:2\n\"k\"=string:2\n[TOP/M]\n\"new\"=string:2\n");
    mergeText(other, text);
    tree.reduceTo(other);
    EXPECT_EQ(textOf(tree), "[TOP]\n\"b\"=string:1\n[TOP/M]\n") << "values keep what they are";
    EXPECT_EQ(tree.nameOf(top()), "TOP");
    EXPECT_EQ(tree.nameOf(*find(top(), "m")), "M");
    EXPECT_EQ(textOf(other), "[TOP]\n\"B\"=string:2\n\"k\"=string:2\n[TOP/M]\n\"new\"=string:2\n");
    CTree empty;
    tree.reduceTo(empty);
    EXPECT_EQ(textOf(tree), "");
    EXPECT_EQ(tree.size(), 1u);
}

// The key above then has the line of the one below: values of the first are the second's in the file.
TEST_F(Leaving, KnowsThatALineTakenFromAnotherTreeMayNotSayWhatItIs) {
    const std::string file = "[Top/k]\n\"v\"=string:1\n";
    merge("[Top]\n\"a\"=string:1\n[Top/k]\n");
    CTree other;
    TextOf text(file);
    mergeText(other, text);
    tree.reduceTo(other);
    merge(file);
    value(top(), "a", "2");
    const std::string written = write();
    EXPECT_EQ(written, "[Top/k]\n\"a\"=string:2\n[Top/k]\n\"v\"=string:1\n");
    merge(written);
    EXPECT_EQ(names(*find(top(), "k"), false), "a|v|");
}
