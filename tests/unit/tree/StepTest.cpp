// A text that is compared with the one that the tree knows: where that is enough, and where not.
#include "RegLib/tree/Step.h"

#include <gtest/gtest.h>

#include "unit/tree/StepFixture.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

class Step : public StepFixture {};

}  // namespace

TEST_F(Step, CannotRunOnATreeThatHasReadNothing) {
    EXPECT_FALSE(CStep(tree).canRun());
    merge("[a]\n");
    EXPECT_TRUE(CStep(tree).canRun());
}

TEST_F(Step, CannotRunWhenTheTextSaysOtherThanTheTree) {
    for (const char* const text :
         {"[a]\r\n", "[a/b]\n", "[a]", "[a]\n[A]\n", "[a]\n[b]\n[a]\n", "[]\n", "[<root>]\n",
          "[a]\n\"v\"=string:1\n\"V\"=string:1\n", "bad\n", "[a]\n\"v\"=string:1\n[a/v]\n",
          "[a]\n[a/k]\n[a]behind\n"}) {
        CTree fresh;
        TextOf source(text);
        mergeText(fresh, source);
        EXPECT_FALSE(CStep(fresh).canRun()) << text;
    }
}

TEST_F(Step, CannotRunAfterAChangeThatIsNotInTheFile) {
    const std::string text = "[a]\n\"v\"=string:1\n[a/k]\n";
    const auto canRunAfter = [&](const auto& change) {
        merge(text);
        EXPECT_TRUE(CStep(tree).canRun());
        change(*find(tree.root(), "a"));
        const bool canRun = CStep(tree).canRun();
        write();
        EXPECT_TRUE(CStep(tree).canRun()) << "the file is what the tree is";
        return canRun;
    };
    EXPECT_FALSE(canRunAfter([&](Node& a) { set(*find(a, "v"), "v", "2"); }));
    EXPECT_FALSE(canRunAfter([&](Node& a) { set(*find(a, "v"), "v", "longer"); }));
    EXPECT_FALSE(canRunAfter([&](Node& a) { value(a, "new", "2"); }));
    EXPECT_FALSE(canRunAfter([&](Node& a) { key(a, "newkey"); }));
    EXPECT_FALSE(canRunAfter([&](Node& a) { tree.remove(*find(a, "v")); }));
    EXPECT_FALSE(canRunAfter([&](Node&) { tree.reduceTo(tree); }));
}

TEST_F(Step, CannotRunOnATextThatSaysOtherThanWasMeantOnceItIsRead) {
    const auto canRunWith = [](const auto& change) {
        CTree fresh;
        Node& top = fresh.addKey(fresh.root(), "a");
        change(fresh, top);
        textOf(fresh);
        fresh.textWasWritten();
        return CStep(fresh).canRun();
    };
    const auto withValue = [&](std::string_view name, std::string_view line) {
        return canRunWith(
            [&](CTree& fresh, Node& top) { fresh.addValue(top, name, CRegLib::eString, line); });
    };
    const auto withKey = [&](std::string_view name) {
        return canRunWith([&](CTree& fresh, Node& top) { fresh.addKey(top, name); });
    };
    EXPECT_TRUE(withValue("v", "\"v\"=string:x"));
    EXPECT_FALSE(withValue("v", "\"V\"=string:x"));
    EXPECT_FALSE(withValue("v", "\"v\"=dword:x"));
    EXPECT_FALSE(withValue("v", "\"v\"=string:x\ny"));
    EXPECT_FALSE(withValue("v", "\"v\"=string:x\ry"));
    EXPECT_FALSE(withValue("v\"w", "\"v\"w\"=string:x"));
    EXPECT_FALSE(withValue("v", "\"v\"=string:" + std::string(2048, 'x')));
    EXPECT_TRUE(withKey("k"));
    EXPECT_FALSE(withKey(""));
    EXPECT_FALSE(withKey("<root>"));
    EXPECT_FALSE(withKey("s/s"));
    EXPECT_FALSE(withKey("x]y"));
    EXPECT_FALSE(withKey(std::string(2048, 'x')));
    EXPECT_FALSE(canRunWith([](CTree& fresh, Node&) {
        fresh.addValue(fresh.root(), "v", CRegLib::eString, "\"v\"=string:x");
    }));
}

TEST_F(Step, UnderstandsAChangedValue) {
    expectCompared(kSmall,
                   withLine(without(kSmall, "\"p\"=string:2\n"), "[a/k]", "\"p\"=string:9\n"));
    expectCompared(kSmall,
                   withLine(without(kSmall, "\"p\"=string:2\n"), "[a/k]", "\"P\"=dword:23\n"));
    expectCompared(kSmall,
                   withLine(without(kSmall, "\"p\"=string:2\n"), "[a/k]", "x\"p\"=string:\n"));
}

TEST_F(Step, UnderstandsANewValueWhereverItStands) {
    for (const char* const before : {"\"m\"", "\"p\"", "[a/k]", "[b]", ""}) {
        for (const char* const name : {"A", "n", "z"}) {
            expectCompared(kSmall,
                           withLine(kSmall, before, std::string("\"") + name + "\"=string:x\n"));
        }
    }
}

TEST_F(Step, UnderstandsANewKeyBetweenTwo) {
    for (const char* const before : {"[a]", "[a/k]", "[b]", ""}) {
        for (const char* const path : {"c", "a/j", "A/l", "a/k/x", "b/x"}) {
            const std::string line = std::string("[") + path + "]\n";
            expectCompared(kSmall, withLine(kSmall, before, line));
            expectCompared(kSmall, withLine(kSmall, before, line + "\"m\"=string:3\n"));
        }
    }
}

TEST_F(Step, UnderstandsThatLinesHaveGone) {
    for (const char* const lines :
         {"\"m\"=string:1\n", "\"p\"=string:2\n", "[a/k]\n\"m\"=string:3\n", "[b]\n",
          "\"m\"=string:1\n\"p\"=string:2\n", "\"m\"=string:3\n[b]\n"}) {
        expectCompared(kSmall, without(kSmall, lines));
    }
    expectCompared(kSmall, "[a]\n");
    expectCompared(kSmall, "[b]\n");
}

TEST_F(Step, UnderstandsThatAKeyHasLostItsLineAndItsValuesBelongToTheOneBefore) {
    expectCompared(kSmall, without(kSmall, "[b]\n"));
    expectReadWhole(kSmall, without(kSmall, "[a/k]\n"));
    expectCompared("[a]\n[b]\n\"v\"=string:1\n", "[a]\n\"v\"=string:1\n");
}

TEST_F(Step, LeavesToAWholeMergeWhatItDoesNotUnderstand) {
    for (const char* const line :
         {"[a/v/x/y]\n", "[a]\n", "[A]\n", "[b]behind\n", "[a/m]\n", "\"k\"=string:x\n", "\n",
          "bad\n", "[a\n", "[]\n", "[<root>]\n", "\"n\"=string:x\ry\n", "\"m\"=string:4\n"}) {
        expectReadWhole(kSmall, withLine(kSmall, "[a/k]", line));
    }
    expectReadWhole(kSmall, withLine(kSmall, "[a/k]", std::string("\"n\"=string:\0\n", 13)));
    expectReadWhole(kSmall, withLine(kSmall, "\"p\"", "[c]\n"));
    const std::string nothingBelow = "[a]\n[a/k]\n[b]\n";
    expectReadWhole(nothingBelow, withLine(nothingBelow, "[a/k]", "\"k\"=string:x\n"));
    expectReadWhole(kSmall, std::string(kSmall).substr(0, sizeof kSmall - 2));
    expectReadWhole(kSmall,
                    withLine(kSmall, "[a/k]", "\"n\"=string:" + std::string(2040, 'x') + "\n"));
    expectReadWhole(kSmall, "");
}

// The lines below it came from another file, and are in none that is written.
TEST_F(Step, DoesNotKeepWhatIsBelowAValueWhoseLineChanges) {
    merge("[a]\n\"v\"=string:1\n[a/v]\n\"below\"=string:2\n");
    EXPECT_EQ(write(), "[a]\n\"v\"=string:1\n");
    ASSERT_TRUE(CStep(tree).canRun());
    TextOf source("[a]\n\"v\"=string:2\n");
    mergeText(tree, source);
    EXPECT_TRUE(source.wasReadWhole());
    EXPECT_FALSE(tree.hasChildren(*find(*find(tree.root(), "a"), "v")));
}

TEST_F(Step, SaysThatThereAreValuesOnlyWhenTheyAreOtherThanBefore) {
    merge(kSmall);
    EXPECT_FALSE(merge(kSmall).hasValues);
    EXPECT_FALSE(merge(withLine(kSmall, "", "[c]\n")).hasValues);
    EXPECT_TRUE(merge(withLine(kSmall, "[b]", "\"new\"=string:x\n")).hasValues);
    EXPECT_TRUE(merge(withLine(kSmall, "[b]", "\"new\"=string:y\n")).hasValues);
}

TEST_F(Step, WhatComesBackBelowAValueIsNotWritten) {
    const std::string below = "[R]\n\"V\"=string:1\n[R/V/x]\n\"q\"=string:2\n[R/z]\n";
    merge(below);
    const std::string written = write();
    EXPECT_EQ(written, "[R]\n\"V\"=string:1\n[R/z]\n");
    merge(below);
    EXPECT_EQ(write(), written);
}
