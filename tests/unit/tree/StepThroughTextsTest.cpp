// Long texts, orders, blocks and read errors, where a text is compared with the one that the tree knows.
#include <gtest/gtest.h>

#include "unit/tree/StepFixture.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

class StepThroughTexts : public StepFixture {};

}  // namespace

TEST_F(StepThroughTexts, ComparesAHundredThousandLinesOfWhichOneHasChanged) {
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

TEST_F(StepThroughTexts, KeepsTheOrderOfATextInWhichANewLineStandsInItsPlace) {
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

TEST_F(StepThroughTexts, PutsATextInOrderInWhichANewLineStandsElsewhere) {
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
TEST_F(StepThroughTexts, ComparesLinesAcrossTheBordersOfBlocks) {
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

TEST_F(StepThroughTexts, GoesOnFromAReadErrorWithAWholeMerge) {
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

TEST_F(StepThroughTexts, GivesUpWhenTheTextsHaveLittleInCommon) {
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
