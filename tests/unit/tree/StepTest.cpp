// A text that is compared with the one that the tree knows: where that is enough, and where not.
#include "RegLib/tree/Step.h"

#include <gtest/gtest.h>

#include "unit/tree/TreeFixture.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

class Step : public TreeFixture {
protected:
    // The text of some values, and lines of it.
    static std::string line(int number, const std::string& data) {
        return "\"v" + std::to_string(number) + "\"=string:" + data + "\n";
    }
    static std::string sections(int keys, int values) {
        std::string text = "[Top]\n";
        for (int key = 0; key < keys; ++key) {
            text += "[Top/k" + std::to_string(10000 + key) + "]\n";
            for (int value = 0; value < values; ++value) {
                text += line(10000 + value, "data of usual length");
            }
        }
        return text;
    }

    // Both ways, with the same outcome.
    void expectCompared(const std::string& before, const std::string& after) {
        expectSame(before, after, true);
    }
    void expectReadWhole(const std::string& before, const std::string& after) {
        expectSame(before, after, false);
    }

private:
    static void expectSame(const std::string& before, const std::string& after, bool isCompared) {
        CTree stepped;
        PlainTree plain;
        TextOf first(before);
        mergeText(stepped, first);
        plain.merge(before);
        TextOf second(after);
        const CMergeResult result = mergeText(stepped, second);
        const PlainOutcome expected = plain.merge(after);
        EXPECT_EQ(result.code, expected.code) << after;
        EXPECT_EQ(result.isEmpty, expected.isEmpty) << after;
        EXPECT_EQ(second.wasReadWhole(), !isCompared) << after;
        EXPECT_EQ(second.rewinds(), isCompared ? 0 : 1) << after;
        EXPECT_EQ(dumpOf(stepped), plain.dump(plain.root())) << after;
        EXPECT_EQ(textOf(stepped), plain.text()) << after;
    }
};

const char kSmall[] = "[a]\n\"m\"=string:1\n\"p\"=string:2\n[a/k]\n\"m\"=string:3\n[b]\n";

std::string withLine(const std::string& text, const std::string& before, const std::string& line) {
    const std::size_t at = before.empty() ? text.size() : text.find(before);
    return text.substr(0, at) + line + text.substr(at);
}

std::string without(const std::string& text, const std::string& lines) {
    const std::size_t at = text.find(lines);
    return text.substr(0, at) + text.substr(at + lines.size());
}

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

TEST_F(Step, ComparesAHundredThousandLinesOfWhichOneHasChanged) {
    const std::string text = sections(10000, 9);
    const std::string line = "\"v10004\"=string:data of usual length\n";
    for (const char* const key : {"[Top/k10000]", "[Top/k15000]", "[Top/k19999]"}) {
        const std::size_t at = text.find(line, text.find(key));
        for (const char* const by :
             {"\"v10004\"=string:DATA of usual length\n", "\"V10004\"=string:shorter\n", ""}) {
            CTree large;
            TextOf first(text);
            mergeText(large, first);
            const std::string changed = text.substr(0, at) + by + text.substr(at + line.size());
            TextOf second(changed);
            mergeText(large, second);
            EXPECT_FALSE(second.wasReadWhole()) << key << by;
            EXPECT_EQ(second.rewinds(), 0);
            EXPECT_EQ(textOf(large), *by ? changed : text);
            TextOf third(changed);
            mergeText(large, third);
            EXPECT_EQ(textOf(large), *by ? changed : text) << "nothing new the second time";
        }
    }
}

TEST_F(Step, KeepsTheOrderOfATextInWhichANewLineStandsInItsPlace) {
    const std::string text = sections(100, 10);
    merge(text);
    write();
    const char* const block = tree.text().front().data();
    const std::string longer =
        withLine(text, "[Top/k10050]", "\"v10010\"=string:new\n[Top/k10049/sub]\n\"v\"=dword:1\n");
    merge(longer);
    EXPECT_EQ(tree.text().front().data(), block) << "made anew although all was in order";
    EXPECT_EQ(textOf(tree), longer);
    value(*find(tree.root(), "Top"), "w", "of its own");
    EXPECT_EQ(tree.text().front().data(), block);
    EXPECT_EQ(textOf(tree), withLine(longer, "[Top/k10000]", "\"w\"=string:of its own\n"));
}

TEST_F(Step, PutsATextInOrderInWhichANewLineStandsElsewhere) {
    const std::string text = "[a]\n\"m\"=string:1\n[a/k]\n[a/o]\n";
    const auto inOrder = [&](const std::string& changed) {
        CTree stepped;
        TextOf first(text);
        mergeText(stepped, first);
        textOf(stepped);
        stepped.textWasWritten();
        TextOf second(changed);
        mergeText(stepped, second);
        EXPECT_FALSE(second.wasReadWhole());
        return textOf(stepped);
    };
    for (const char* const before : {"\"m\"", "[a/k]", "[a/o]", ""}) {
        const bool isInK = before == std::string("[a/o]");
        const bool isInM = *before == '\0';
        EXPECT_EQ(inOrder(withLine(text, before, "\"n\"=dword:\n")), withLine(text,
                                                                              isInK   ? "[a/o]"
                                                                              : isInM ? ""
                                                                                      : "[a/k]",
                                                                              "\"n\"=dword:\n"));
    }
    for (const char* const before : {"[a]", "[a/k]", "[a/o]", ""}) {
        EXPECT_EQ(inOrder(withLine(text, before, "[a/l]\n")), withLine(text, "[a/o]", "[a/l]\n"));
        EXPECT_EQ(inOrder(withLine(text, before, "[b]\n")), text + "[b]\n");
        EXPECT_EQ(inOrder(withLine(text, before, "[a/k/x]\n")),
                  withLine(text, "[a/o]", "[a/k/x]\n"));
    }
}

// A line lies across the border of two blocks, wherever that is.
TEST_F(Step, ComparesLinesAcrossTheBordersOfBlocks) {
    const std::string start = "[Top]\n";
    std::string text = start;
    for (int number = 10000; number < 10060; ++number) {
        text += line(number, std::string(1500, 'd'));
    }
    for (std::size_t shift = 0; shift < 1600; shift += 97) {
        const std::string shifted =
            withLine(text, "\"v10001\"", line(9999, std::string(shift, 's')));
        const std::string changed = withLine(shifted, "", line(10060, "new"));
        expectCompared(shifted, changed);
        std::string inTheMiddle = shifted;
        inTheMiddle[64UL * 1024] = 'X';
        inTheMiddle[64UL * 1024 - 40] = 'X';
        if (inTheMiddle.find("X=") == std::string::npos) {
            CTree stepped;
            for (const std::string& each : {shifted, inTheMiddle}) {
                TextOf source(each);
                mergeText(stepped, source);
            }
            PlainTree plain;
            plain.merge(shifted);
            plain.merge(inTheMiddle);
            EXPECT_EQ(textOf(stepped), plain.text()) << shift;
        }
    }
}

TEST_F(Step, GoesOnFromAReadErrorWithAWholeMerge) {
    const std::string changed =
        withLine(without(kSmall, "\"p\"=string:2\n"), "[a/k]", "\"p\"=string:other\n");
    for (std::size_t at = 0; at <= changed.size(); ++at) {
        CTree stepped;
        PlainTree plain;
        TextOf first(kSmall);
        mergeText(stepped, first);
        plain.merge(kSmall);
        TextOf second(changed);
        second.failAt(at);
        const CMergeResult result = mergeText(stepped, second);
        plain.merge(changed.substr(0, changed.substr(0, at).rfind('\n') + 1));
        EXPECT_EQ(result.readError, EIO);
        EXPECT_EQ(result.isEmpty, at < 4);
        EXPECT_FALSE(CStep(stepped).canRun()) << "the file may hold more";
        EXPECT_EQ(dumpOf(stepped), plain.dump(plain.root())) << at;
        EXPECT_EQ(textOf(stepped), plain.text()) << at;
        TextOf third(changed);
        mergeText(stepped, third);
        EXPECT_EQ(textOf(stepped), changed);
    }
}

TEST_F(Step, GivesUpWhenTheTextsHaveLittleInCommon) {
    const auto withOthers = [](int count) {
        std::string text = "[Top]\n[Top/k10000]\n";
        for (int value = 0; value < 500; ++value) {
            text += line(10000 + value,
                         value < count ? "DATA of usual length" : "data of usual length");
        }
        return text;
    };
    expectCompared(sections(1, 500), withOthers(20));
    expectReadWhole(sections(1, 500), withOthers(100));
    expectReadWhole(sections(1, 500), withOthers(500));
}

TEST_F(Step, WhatComesBackBelowAValueIsNotWritten) {
    const std::string below = "[R]\n\"V\"=string:1\n[R/V/x]\n\"q\"=string:2\n[R/z]\n";
    merge(below);
    const std::string written = write();
    EXPECT_EQ(written, "[R]\n\"V\"=string:1\n[R/z]\n");
    merge(below);
    EXPECT_EQ(write(), written);
}
