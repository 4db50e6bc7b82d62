// The verbs of the tree that find, add and change.
#include "RegLib/tree/Tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "unit/tree/TreeFixture.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

class Tree : public TreeFixture {};

}  // namespace

TEST_F(Tree, HoldsItsRootAtFirst) {
    EXPECT_EQ(tree.size(), 1u);
    EXPECT_EQ(tree.nameOf(tree.root()), "<root>");
    EXPECT_TRUE(tree.root().isKey());
    EXPECT_EQ(tree.root().line(), "");
    EXPECT_EQ(tree.parentOf(tree.root()), nullptr);
    EXPECT_EQ(textOf(tree), "");
    EXPECT_FALSE(tree.hasValue());
}

TEST_F(Tree, FindsNamesInAnySpellingAndKeepsTheFirst) {
    CKeyOrValue& network = key("Network");
    CKeyOrValue& speed = value(network, "Speed", "fast");
    for (const char* const spelled : {"Network", "NETWORK", "nETwork"}) {
        EXPECT_EQ(find(tree.root(), spelled), &network);
    }
    EXPECT_EQ(find(network, "SPEED"), &speed);
    EXPECT_EQ(find(network, "Spee"), nullptr);
    EXPECT_EQ(find(tree.root(), "Speed"), nullptr);
    EXPECT_EQ(tree.nameOf(network), "Network");
    EXPECT_EQ(tree.nameOf(speed), "Speed");
    EXPECT_EQ(tree.parentOf(speed), &network);
}

TEST_F(Tree, WritesAKeyItsValuesAndThenItsSubKeysEachInOrder) {
    CKeyOrValue& top = key("Top");
    CKeyOrValue& b = tree.addKey(top, "b");
    tree.addKey(top, "A");
    value(b, "y", "1");
    value(top, "z", "2");
    value(top, "K", "3");
    value(b, "X", "4");
    key("Another");
    EXPECT_EQ(textOf(tree),
              "[Another]\n[Top]\n\"K\"=string:3\n\"z\"=string:2\n[Top/A]\n[Top/b]\n"
              "\"X\"=string:4\n\"y\"=string:1\n");
}

TEST_F(Tree, OrdersByUnsignedBytesOfTheFoldedNames) {
    CKeyOrValue& top = key("Top");
    for (const char* const name : {"\xC4", "b", "B1", "_", "a", "Z", "", "aa", "^"}) {
        value(top, name, "x");
    }
    EXPECT_EQ(names(top, false), "|^|_|a|aa|b|B1|Z|\xC4|");
}

TEST_F(Tree, CountsTheChildrenOfEachKindByThemselves) {
    CKeyOrValue& top = key("Top");
    EXPECT_FALSE(tree.hasChildren(top));
    value(top, "b", "x");
    tree.addKey(top, "a");
    tree.addKey(top, "c");
    EXPECT_EQ(tree.countOfKind(top, true), 2u);
    EXPECT_EQ(tree.countOfKind(top, false), 1u);
    EXPECT_TRUE(tree.hasChildren(top));
    EXPECT_EQ(tree.childOfKind(top, true, 1), find(top, "c"));
    EXPECT_EQ(tree.childOfKind(top, false, 0), find(top, "b"));
    EXPECT_EQ(tree.childOfKind(top, true, 2), nullptr);
    EXPECT_EQ(tree.childOfKind(top, false, 1), nullptr);
    EXPECT_EQ(tree.childOfKind(top, true, -1), nullptr);
    EXPECT_EQ(tree.childOfKind(*find(top, "b"), false, 0), nullptr);
}

TEST_F(Tree, LeavesOutTheNameOfTheRootWhoeverBearsIt) {
    CKeyOrValue& top = key("Top");
    CKeyOrValue& named = tree.addKey(top, "<root>");
    CKeyOrValue& below = tree.addKey(named, "x");
    CKeyOrValue& other = tree.addKey(tree.addKey(top, "y"), "<ROOT>");
    EXPECT_EQ(named.line(), "[Top]");
    EXPECT_EQ(below.line(), "[Top/x]");
    EXPECT_EQ(other.line(), "[Top/y/<ROOT>]") << "only this spelling is the root's";
    EXPECT_EQ(tree.nameOf(named), "<root>");
    EXPECT_EQ(tree.fullNameFor(nullptr, "x"), "[x]");
}

TEST_F(Tree, WritesNoLineForAKeyThatIsNamedAsTheRoot) {
    CKeyOrValue& top = key("Top");
    CKeyOrValue& named = tree.addKey(top, "<root>");
    EXPECT_EQ(textOf(tree), "[Top]\n");
    value(named, "v", "x");
    tree.addKey(named, "k");
    EXPECT_EQ(textOf(tree), "[Top]\n\"v\"=string:x\n[Top/k]\n");
}

TEST_F(Tree, KeepsNamesThatTheFormatCannotHold) {
    const std::string longName(300, 'N');
    CKeyOrValue& top = key("Top");
    for (const std::string& name :
         {std::string(), longName, std::string("c:c"), std::string("s/s"), std::string("x]y"),
          std::string("q\"q"), std::string("[b"), std::string("cr\r"), std::string("lf\n")}) {
        CKeyOrValue& asKey = tree.addKey(top, name);
        EXPECT_EQ(tree.nameOf(asKey), name);
        EXPECT_EQ(asKey.line(), "[Top/" + name + "]");
        EXPECT_EQ(find(top, name), &asKey);
        CKeyOrValue& asValue = value(asKey, name, "x");
        EXPECT_EQ(tree.nameOf(asValue), name);
        EXPECT_EQ(find(asKey, name), &asValue);
        set(asValue, name, "longer");
        EXPECT_EQ(tree.nameOf(asValue), name);
        EXPECT_EQ(asValue.line(), "\"" + name + "\"=string:longer");
    }
    EXPECT_EQ(tree.countOfKind(top, true), 9u);
}

TEST_F(Tree, KeepsTheSpellingOfAValueThatItsLineSpellsOtherwise) {
    CKeyOrValue& top = key("Top");
    CKeyOrValue& speed = value(top, "Speed", "one");
    for (const char* const spelled : {"SPEED", "speed", "Speed", "sPEED"}) {
        for (const char* const data : {"one", "two", "another"}) {
            set(speed, spelled, data);
            const std::string line = std::string("\"") + spelled + "\"=string:" + data;
            EXPECT_EQ(speed.line(), line);
            EXPECT_EQ(tree.nameOf(speed), "Speed");
            EXPECT_EQ(find(top, "speed"), &speed);
            EXPECT_EQ(textOf(tree), "[Top]\n" + line + "\n");
        }
    }
    tree.remove(speed);
    EXPECT_EQ(find(top, "speed"), nullptr);
}

TEST_F(Tree, ChangesALineOfTheSameSizeInTheTextThatItHas) {
    CKeyOrValue& top = key("Top");
    CKeyOrValue& first = value(top, "a", "1111");
    value(top, "b", "2222");
    textOf(tree);
    const char* const before = tree.text().front().data();
    set(first, "a", "3333");
    EXPECT_EQ(tree.text().front().data(), before);
    EXPECT_EQ(textOf(tree), "[Top]\n\"a\"=string:3333\n\"b\"=string:2222\n");
    EXPECT_EQ(tree.text().size(), 1u);
    set(first, "a", "another size");
    EXPECT_EQ(tree.text().front().data(), before) << "the rest stays";
    EXPECT_EQ(textOf(tree), "[Top]\n\"a\"=string:another size\n\"b\"=string:2222\n");
}

TEST_F(Tree, ReadsTheNumberOfALineAgainWhenItHasChanged) {
    CKeyOrValue& top = key("Top");
    const auto line = [](std::uint32_t number) { return composeDwordLine("n", number); };
    CKeyOrValue& number = tree.addValue(top, "n", CRegLib::eDword, line(7));
    EXPECT_EQ(tree.dwordOf(number), 7u);
    EXPECT_EQ(tree.dwordOf(number), 7u);
    tree.setValue(number, CRegLib::eDword, line(0xFFFFFFFF));
    EXPECT_EQ(tree.dwordOf(number), 0xFFFFFFFFu);
    tree.setValue(number, CRegLib::eDword, "\"n\"=dword:12");
    EXPECT_EQ(tree.dwordOf(number), 0x12u);
    tree.setValue(number, CRegLib::eDword, "\"n\" has no data");
    EXPECT_EQ(tree.dwordOf(number), 0u);
}

TEST_F(Tree, KnowsWhereTheDataOfAValueAreUntilItChanges) {
    CKeyOrValue& text = value(key("Top"), "n", "one");
    const auto dataOf = [&](CKeyOrValue& of) {
        std::string_view data;
        const int result = tree.dataOf(of, data);
        return result < 0 ? "no data" : std::string(data);
    };
    for (int look = 0; look < 2; ++look) {
        EXPECT_EQ(dataOf(text), "one");
    }
    set(text, "n", "another");
    EXPECT_EQ(dataOf(text), "another");
    const std::string written = write();
    EXPECT_EQ(dataOf(text), "another") << "its line is elsewhere now";
    tree.setValue(text, CRegLib::eDword, composeDwordLine("n", 7));
    EXPECT_EQ(tree.dwordOf(text), 7u);
    tree.setValue(text, CRegLib::eBinary, "\"n\"=binary:00FF");
    EXPECT_EQ(dataOf(text), "00FF");
    merge(written);
    EXPECT_EQ(dataOf(text), "another");
    set(text, "n", "");
    EXPECT_EQ(dataOf(text), "");
    tree.setValue(text, CRegLib::eString, "\"n\" has no data");
    for (int look = 0; look < 2; ++look) {
        EXPECT_EQ(dataOf(text), "no data");
    }
}

TEST_F(Tree, PutsANumberInThePlaceOfAnother) {
    CKeyOrValue& number = tree.addValue(key("Top"), "n", CRegLib::eDword, composeDwordLine("n", 7));
    EXPECT_EQ(tree.dwordOf(number), 7u);
    const char* const before = number.m_line;
    EXPECT_TRUE(tree.setNumberInPlace(number, 0xFEDCBA98));
    EXPECT_EQ(tree.dwordOf(number), 0xFEDCBA98u);
    EXPECT_EQ(number.m_line, before);
    EXPECT_EQ(textOf(tree), "[Top]\n\"n\"=dword:FEDCBA98\n");
}

TEST_F(Tree, TakesTheFilesNumberForOneThatWasPutInPlace) {
    CKeyOrValue& number = tree.addValue(key("Top"), "n", CRegLib::eDword, composeDwordLine("n", 7));
    const std::string text = write();
    ASSERT_TRUE(tree.setNumberInPlace(number, 8));
    merge(text);
    EXPECT_EQ(tree.dwordOf(number), 7u) << "the file's line counts";
}

TEST_F(Tree, PutsANumberIntoNoLineOfAnotherForm) {
    for (const char* line :
         {"\"n\"=dword:12", "\"n\"=dword:000000012", "\"N\"=dword:00000012",
          " \"n\"=dword:00000012", "\"n\" =dword:0000012", "\"n\"=Dword:00000012"}) {
        CKeyOrValue& number = tree.addValue(key("Top"), "n", CRegLib::eDword, line);
        EXPECT_FALSE(tree.setNumberInPlace(number, 7)) << line;
        EXPECT_EQ(number.line(), line);
        tree.remove(number);
    }
    CKeyOrValue& text = tree.addValue(key("Top"), "n", CRegLib::eString, "\"n\"=dword:00000012");
    EXPECT_FALSE(tree.setNumberInPlace(text, 7));
}

TEST_F(Tree, ChangesTheTypeOfAValueWithItsLine) {
    CKeyOrValue& changed = value(key("Top"), "v", "12");
    EXPECT_EQ(changed.type(), CRegLib::eString);
    tree.setValue(changed, CRegLib::eBinary, "\"v\"=binary:12");
    EXPECT_EQ(changed.type(), CRegLib::eBinary);
    EXPECT_EQ(textOf(tree), "[Top]\n\"v\"=binary:12\n");
}

TEST_F(Tree, TellsWhetherThereIsAnyValue) {
    CKeyOrValue& deep = tree.addKey(key("Top"), "deep");
    key("Other");
    EXPECT_FALSE(tree.hasValue());
    CKeyOrValue& only = value(deep, "v", "x");
    EXPECT_TRUE(tree.hasValue());
    tree.remove(only);
    EXPECT_FALSE(tree.hasValue());
}

TEST_F(Tree, ShowsValuesAndSubKeysTogetherInTheOrderOfTheirNames) {
    CKeyOrValue& top = key("Top");
    CKeyOrValue& b = tree.addKey(top, "b");
    value(top, "a", "1");
    value(top, "C", "2");
    value(b, "x", "3");
    EXPECT_EQ(dumpOf(tree),
              "0 key 0 {<root>} \n1 key 0 {Top} [Top]\n2 value 3 {a} \"a\"=string:1\n"
              "2 key 0 {b} [Top/b]\n3 value 3 {x} \"x\"=string:3\n2 value 3 {C} \"C\"=string:2\n");
    EXPECT_EQ(dumpOf(tree, *find(top, "C")), "0 value 3 {C} \"C\"=string:2\n");
}

TEST_F(Tree, HoldsTenThousandValuesOfOneKeyThatComeInAnyOrder) {
    std::vector<int> numbers(10000);
    for (std::size_t at = 0; at < numbers.size(); ++at) {
        numbers[at] = static_cast<int>(at + 10000);
    }
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(8));
    CKeyOrValue& top = key("Top");
    for (const int number : numbers) {
        value(top, "V" + std::to_string(number), "x");
    }
    ASSERT_EQ(tree.countOfKind(top, false), numbers.size());
    std::string expected = "[Top]\n";
    for (int index = 0; index < 10000; ++index) {
        const std::string name = "V" + std::to_string(index + 10000);
        ASSERT_EQ(tree.nameOf(*tree.childOfKind(top, false, index)), name);
        expected += "\"" + name + "\"=string:x\n";
    }
    EXPECT_EQ(textOf(tree), expected);
    for (const int number : numbers) {
        tree.remove(*find(top, "v" + std::to_string(number)));
    }
    EXPECT_FALSE(tree.hasChildren(top));
    EXPECT_EQ(textOf(tree), "[Top]\n");
}

// Between what has gathered and what is used there is a bound.
TEST_F(Tree, MakesItsTextAnewBeforeOldLinesTakeTooMuchRoom) {
    CKeyOrValue& top = key("Top");
    CKeyOrValue& changed = value(top, "v", "x");
    textOf(tree);
    std::size_t anew = 0;
    const char* block = tree.text().front().data();
    for (std::size_t round = 0; round < 3000; ++round) {
        set(changed, "v", std::string(500 + round % 2, 'y'));
        const char* const now = tree.text().front().data();
        anew += now != block ? 1 : 0;
        block = now;
    }
    EXPECT_GE(anew, 3u);
    EXPECT_LT(anew, 100u);
    EXPECT_EQ(textOf(tree), "[Top]\n" + std::string(changed.line()) + "\n");
}

TEST_F(Tree, HasRootValuesBeforeAllKeysInItsText) {
    key("Top");
    value(tree.root(), "v", "x");
    EXPECT_EQ(textOf(tree), "\"v\"=string:x\n[Top]\n");
}

// Sizes are kept in 32 bits. Nothing of such a line is looked at.
TEST_F(Tree, RefusesLinesWhoseSizeItCannotKeep) {
    if constexpr (sizeof(std::size_t) > 4) {
        Node& v = value(key("a"), "v", "x");
        const std::string_view endless(v.line().data(), std::size_t{0xFFFFFFFF});
        EXPECT_THROW(tree.setValue(v, VQRegLib::CRegLib::eString, endless), std::length_error);
        EXPECT_EQ(v.line(), "\"v\"=string:x");
    }
}
