// Lines as the library writes them are merged several at a time; whatever is next to them has to be seen.
#include "RegLib/tree/PlainValues.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "unit/tree/TreeFixture.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

class PlainValues : public TreeFixture {
protected:
    // Merges a text in a tree of its own, and once more into that: as the plain tree does.
    static void expectAsPlain(const std::string& text) {
        CTree fresh;
        PlainTree plain;
        for (int time = 0; time < 2; ++time) {
            TextOf source(text);
            EXPECT_EQ(CMerge(fresh).run(source).code, plain.merge(text).code) << text;
            ASSERT_EQ(dumpOf(fresh), plain.dump(plain.root())) << text;
            expectFound(fresh);
        }
        EXPECT_EQ(textOf(fresh), plain.text()) << text;
    }

    static void expectFound(const CTree& in) {
        in.forEachShown(in.root(), [&](const CKeyOrValue& at, unsigned long) {
            const CKeyOrValue* const parent = in.parentOf(at);
            EXPECT_TRUE(!parent || in.findChild(*parent, in.nameOf(at)) == &at) << at.line();
        });
    }

    static std::string values(const std::vector<std::string>& names) {
        std::string text = "[Top]\n";
        for (const std::string& name : names) {
            text += "\"" + name + "\"=dword:0000000" + std::to_string(text.size() % 10) + "\n";
        }
        return text;
    }

    static std::string numbered(int count) {
        std::vector<std::string> names;
        for (int number = 0; number < count; ++number) {
            names.push_back("Value" + std::to_string(100000 + number));
        }
        return values(names);
    }
};

}  // namespace

TEST_F(PlainValues, AreTakenUpToTheFirstThatIsNotBehindTheOthers) {
    std::string_view text = "\"a\"=dword:1\n\"b\"=string:\n\"B\"=string:x\n";
    tree.addKey(tree.root(), "Top");
    EXPECT_TRUE(CPlainValues(tree).take(*find(tree.root(), "Top"), text));
    EXPECT_EQ(text, "\"B\"=string:x\n");
    EXPECT_EQ(names(*find(tree.root(), "Top"), false), "a|b|");
    EXPECT_FALSE(CPlainValues(tree).take(*find(tree.root(), "Top"), text));
    EXPECT_EQ(text, "\"B\"=string:x\n");
}

TEST_F(PlainValues, AreNotTakenBesideSubKeys) {
    std::string_view text = "\"a\"=dword:1\n";
    Node& top = key("Top");
    key(top, "z");
    EXPECT_FALSE(CPlainValues(tree).take(top, text));
    EXPECT_EQ(names(top, false), "");
}

TEST_F(PlainValues, HaveNamesOfAllLengths) {
    expectAsPlain(values({"", "A", "Ab", "Abc", "Abcdefg", "Abcdefgh", "Abcdefghi", "abcdefghj",
                          "Abcdefghjjjjjjjjjjjjjjjjjj", "ABCDEFGHJJJJJJJJJJJJJJJJJK", "b"}));
    expectAsPlain(values({"Abcdefghi", "abcdefgha"}));
    expectAsPlain(values({"Abcdefghi", "aBCDEFGHI"}));
    expectAsPlain(values({"Abcdefghi", "abcdefgh"}));
    expectAsPlain(values({"B", "a"}));
    expectAsPlain(values({"_", "Z", "\xC3\xA4", "\xC3\x84"}));
}

TEST_F(PlainValues, AreAsManyAsThereMayBe) {
    for (const int count : {63, 64, 65, 128, 129, 510, 511, 512, 513, 2047, 2048, 2049, 5000}) {
        expectAsPlain(numbered(count));
        expectAsPlain(numbered(count) + "\"Value100001\"=string:once more\n\"w\"=dword:1\n");
    }
}

TEST_F(PlainValues, EndAtLinesOfAnotherKind) {
    for (const std::string line : {"\"b\"=dword:",
                                   "\"b\"=dword",
                                   "\"b\"=string:",
                                   "\"b\"=string",
                                   "\"b\"=binary:",
                                   "\"b\"=binary:A",
                                   "\"b\"=Dword:1",
                                   "\"b\"=strings:x",
                                   "\"b\" =dword:1",
                                   " \"b\"=dword:1",
                                   "\"b",
                                   "\"",
                                   "",
                                   "\"b=dword:1",
                                   "x",
                                   "\"b\"=dword:\"=dword:1",
                                   "\"b\"==dword:1",
                                   "\"aa\"=string:\r",
                                   "[Top/b]",
                                   "[Other]rest",
                                   "]"}) {
        for (const char* const end : {"", "\n", "\n\"c\"=dword:1\n", "\n\"c\"=dword:1"}) {
            expectAsPlain("[Top]\n\"a\"=dword:1\n" + line + end);
            expectAsPlain("[Top]\n" + line + end);
        }
    }
}

TEST_F(PlainValues, AreCutWhereLinesAre) {
    for (const std::size_t size : {2046UL, 2047UL, 2048UL, 2049UL, 4096UL}) {
        const std::string begin = "\"b\"=string:";
        expectAsPlain("[Top]\n" + begin + std::string(size - begin.size(), 'x') +
                      "\n\"c\"=dword:1\n");
        expectAsPlain("[Top]\n\"" + std::string(size - begin.size(), 'n') + "\"=string:\n");
    }
}

// A path that begins as the last one did need not be walked from its beginning.
TEST_F(PlainValues, BelongToTheKeysThatTheirPathsName) {
    for (const char* const path : {"a", "a/b", "A/b", "a/bc", "a/b/c", "a/b/", "a/b//c", "a/", "",
                                   "/", "a/b/v", "v", "<root>", "b"}) {
        for (const char* const other :
             {"a", "a/b", "a/B", "a/b/c/d", "a/b/c", "a//b", "a/b/v/w", "ab", "<root>/a"}) {
            const auto part = [](const char* at, const char* name) {
                return "[" + std::string(at) + "]\n\"" + name + "\"=dword:1\n";
            };
            expectAsPlain(part(path, "v") + part(other, "u") + part(path, "w"));
            expectAsPlain("[a]\n[a/b]\n" + part(path, "b") + part(other, "v") + part("a/b", "x"));
            expectAsPlain("[a]\n[a/b]\n[a]\n\"b\"=dword:2\n" + part(path, "c") + part(other, "b"));
        }
    }
}

TEST_F(PlainValues, OfAnyTextAreWhatEachLineMakesOfThem) {
    std::mt19937 random(3);
    const auto below = [&](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    for (int round = 0; round < 300; ++round) {
        std::string text = "[Top]\n";
        std::size_t number = 100;
        for (std::size_t lines = below(200); lines > 0; --lines) {
            number = below(20) == 0 ? below(400) : number + 1 + below(3);
            const std::string name =
                (below(9) == 0 ? "NAMEofvalue" : "NameOfValue") + std::to_string(number);
            if (below(12) == 0) {
                text += below(2) == 0 ? "[Top/" + name + "]\n" : "[Top/" + name + "/k]\n";
                number = below(2) == 0 ? 100 : number;
            } else {
                text += "\"" + name + "\"=string:" + std::string(below(30), 'x') + "\n";
            }
        }
        expectAsPlain(text);
        if (HasFailure()) {
            return;
        }
    }
}
