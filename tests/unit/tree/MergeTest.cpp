// A text that is merged whole.
#include "RegLib/tree/Merge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/tree/TreeFixture.h"

using namespace VQRegLib;
using namespace vqtest;
using testing::ElementsAre;

namespace {

class Merge : public TreeFixture {
protected:
    // Into a tree that has seen nothing.
    std::string anew(const std::string& text, int expectedCode = REGLIB_E_END_OF_FILE) {
        CTree fresh;
        TextOf source(text);
        EXPECT_EQ(mergeText(fresh, source).code, expectedCode) << text;
        PlainTree plain;
        EXPECT_EQ(plain.merge(text).code, expectedCode) << text;
        EXPECT_EQ(dumpOf(fresh), plain.dump(plain.root())) << text;
        return textOf(fresh);
    }
};

}  // namespace

TEST_F(Merge, BringsNothingOutOfAnEmptyText) {
    key("Top");
    const CMergeResult result = merge("");
    EXPECT_EQ(result.code, REGLIB_E_END_OF_FILE);
    EXPECT_TRUE(result.isEmpty);
    EXPECT_FALSE(result.hasValues);
    EXPECT_EQ(textOf(tree), "[Top]\n");
}

TEST_F(Merge, TellsWhetherThereWereValues) {
    EXPECT_FALSE(merge("[Top]\n").hasValues);
    EXPECT_FALSE(merge("[Top]\n").isEmpty);
    EXPECT_TRUE(merge("[Top]\n\"v\"=string:\n").hasValues);
}

TEST_F(Merge, KeepsWhatTheTextLacks) {
    value(key("Top"), "own", "1");
    merge("[Top]\n\"v\"=string:2\n[Other]\n");
    EXPECT_EQ(textOf(tree), "[Other]\n[Top]\n\"own\"=string:1\n\"v\"=string:2\n");
}

TEST_F(Merge, ReadsLinesWithCarriageReturnsAndNulsUpToThem) {
    const std::string text = "[Top]\r\n\"a\"=string:1\r\n\"b\"=string:2\rrest\n";
    EXPECT_EQ(anew(text), "[Top]\n\"a\"=string:1\n\"b\"=string:2\n");
    EXPECT_EQ(anew(std::string("[Top]\n\"a\"=string:1\0rest\n", 24)), "[Top]\n\"a\"=string:1\n");
    EXPECT_EQ(anew("[Top]\n\"a\"=string:without end"), "[Top]\n\"a\"=string:without end\n");
}

TEST_F(Merge, StopsAtLinesThatAreNone) {
    for (const char* const bad : {"", "x", "\"a", "\"a\"", "\"a\"string:x", "\"a\"=string",
                                  "\"a\"=String:x", "\"a\"=:x", "[a", "[]\n\"a\"=string:x"}) {
        const std::string text =
            "[Top]\n\"v\"=string:1\n" + std::string(bad) + "\n\"w\"=string:2\n";
        EXPECT_EQ(anew(text, REGLIB_E_BAD_FORMAT), "[Top]\n\"v\"=string:1\n");
    }
    EXPECT_EQ(anew("\"v\"=string:1\n", REGLIB_E_BAD_FORMAT), "");
    EXPECT_EQ(anew("[]\n"), "");
}

TEST_F(Merge, ReadsLinesOfTheLongestSizeAndCutsLongerOnes) {
    const std::string start = "[Top]\n\"v\"=string:";
    const std::string longest(2047 - 11, 'x');
    EXPECT_EQ(anew(start + longest + "\n"), start + longest + "\n");
    EXPECT_EQ(anew(start + longest + "y\n", REGLIB_E_BAD_FORMAT), start + longest + "y\n");
    EXPECT_EQ(anew(start + longest + "y\"w\"=dword:1\n"), start + longest + "y\n\"w\"=dword:1\n");
    EXPECT_EQ(anew(start + longest + "\r\n", REGLIB_E_BAD_FORMAT), start + longest + "\n");
}

TEST_F(Merge, MakesKeysThatTheTextDoesNotNameWithTheWholeLine) {
    EXPECT_EQ(anew("[a/b]trailing\n"), "[a/b]trailing\n[a/b]trailing\n");
    EXPECT_EQ(anew("[a//b/]\n"), "[a//b/]\n[a//b/]\n[a//b/]\n");
    EXPECT_EQ(anew("[a]\n[A]behind\n[A/B]\n"), "[a]\n[A/B]\n");
}

TEST_F(Merge, PutsAValueInThePlaceOfASubKey) {
    EXPECT_EQ(anew("[a]\n[a/k]\n\"x\"=string:1\n[a]\n\"K\"=string:2\n"), "[a]\n\"K\"=string:2\n");
}

TEST_F(Merge, PutsLinesUnderAValueThatAKeyLineNames) {
    const std::string text =
        "[a]\n\"v\"=string:1\n[a/V]\n\"x\"=string:2\n[a/v/k]\n\"y\"=string:3\n";
    EXPECT_EQ(anew(text), "[a]\n\"v\"=string:1\n") << "what is below a value is in no text";
    merge(text);
    Node& named = *find(*find(tree.root(), "a"), "v");
    EXPECT_EQ(names(named, false), "x|");
    EXPECT_EQ(names(*find(named, "K"), false), "y|");
    merge("[a]\n\"v\"=string:2\n");
    EXPECT_FALSE(tree.hasChildren(*find(*find(tree.root(), "a"), "v")));
}

TEST_F(Merge, TakesTheSpellingOfTheLastLine) {
    EXPECT_EQ(anew("[a]\n\"v\"=string:1\n\"V\"=dword:2\n"), "[a]\n\"V\"=dword:2\n");
    Node& before = value(key("a"), "Value", "1");
    set(before, "VALUE", "2");
    merge("[a]\n\"vALUE\"=string:3\n");
    EXPECT_EQ(names(*find(tree.root(), "a"), false), "vALUE|");
}

TEST_F(Merge, DoesNotGrowWithTheNumberOfReadings) {
    merge("[a]\n\"v\"=string:0\n\"w\"=string:0\n");
    const std::size_t size = tree.size();
    for (int round = 0; round < 100; ++round) {
        TextOf source("[a]\r\n\"v\"=string:" + std::to_string(round) + "\n");
        CMerge(tree).run(source);
    }
    EXPECT_EQ(tree.size(), size);
}

TEST_F(Merge, TellsEachLineAsItIsRead) {
    TextOf source("[a]\r\n\"v\"=string:1\nbad\n\"w\"=string:2\n");
    source.tellLines();
    EXPECT_EQ(mergeText(tree, source).code, REGLIB_E_BAD_FORMAT);
    EXPECT_THAT(source.lines(), ElementsAre("[a]", "\"v\"=string:1", "bad"));
}

TEST_F(Merge, TellsEachLineOfATextThatItKnows) {
    merge("[a]\n\"v\"=string:1\n");
    TextOf source("[a]\n\"v\"=string:1\n");
    source.tellLines();
    mergeText(tree, source);
    EXPECT_THAT(source.lines(), ElementsAre("[a]", "\"v\"=string:1"));
}

TEST_F(Merge, TrustsNoLineThatAReadErrorCutShort) {
    const std::string text = "[a]\n\"v\"=string:1234\n\"w\"=string:5678\n";
    for (std::size_t at = 0; at <= text.size(); ++at) {
        CTree fresh;
        TextOf source(text);
        source.failAt(at);
        const CMergeResult result = mergeText(fresh, source);
        EXPECT_EQ(result.code, REGLIB_E_END_OF_FILE);
        EXPECT_EQ(result.readError, EIO);
        EXPECT_EQ(result.isEmpty, at < 4);
        EXPECT_EQ(textOf(fresh), text.substr(0, text.substr(0, at).rfind('\n') + 1)) << at;
    }
}

TEST_F(Merge, ReadsATextThatIsLargerThanItSaysOrSmaller) {
    std::string text = "[a]\n";
    for (int number = 1000; number < 9000; ++number) {
        text += "\"v" + std::to_string(number) + "\"=string:x\n";
    }
    for (const std::size_t told : {std::size_t{0}, std::size_t{1}, std::size_t{70000},
                                   text.size() - 1, text.size() + 1, 2 * text.size()}) {
        CTree fresh;
        TextOf source(text);
        source.tellSize(told);
        mergeText(fresh, source);
        EXPECT_EQ(textOf(fresh), text) << told;
    }
}
