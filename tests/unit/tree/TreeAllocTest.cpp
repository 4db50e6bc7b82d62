// Every verb of the tree, with the n-th allocation failing, for every n.
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>

#include "RegLib/text/LineFormat.h"
#include "RegLib/tree/Merge.h"
#include "RegLib/tree/Tree.h"
#include "support/FailingAllocation.h"
#include "unit/tree/TextOf.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

constexpr long kMostAllocations = 300;
const std::string kLongName(300, 'N');

// Values before and behind, of each kind of name, and keys below each other.
const std::string kStart =
    "[a]\n\"v\"=string:1\n\"w\"=dword:2\n[a/k]\n\"v\"=string:3\n[a/k/l]\n[b]\n";

class TreeWithoutMemory : public testing::Test {
protected:
    using Verb = std::function<void(CTree&)>;

    static std::string textOf(CTree& tree) {
        std::string text;
        for (const std::string_view piece : tree.text()) {
            text += piece;
        }
        return text;
    }

    static CMergeResult merge(CTree& tree, const std::string& text) {
        TextOf source(text);
        return mergeText(tree, source);
    }

    static std::string shown(const CTree& tree) {
        std::string all;
        tree.forEachShown(tree.root(), [&](const CKeyOrValue& at, unsigned long depth) {
            const CKeyOrValue* const parent = tree.parentOf(at);
            EXPECT_TRUE(!parent || tree.findChild(*parent, tree.nameOf(at)) == &at);
            all.append(depth, ' ').append(tree.nameOf(at)).append(1, ' ');
            all.append(at.line()).append(1, '\n');
        });
        return all;
    }

    static CKeyOrValue& at(const CTree& tree, const char* first, const char* second = nullptr) {
        CKeyOrValue& key = *tree.findChild(tree.root(), std::string_view(first));
        return second ? *tree.findChild(key, std::string_view(second)) : key;
    }

    static bool failsAt(long n, CTree& tree, const Verb& verb) {
        FailingAllocation allocation(n);
        try {
            verb(tree);
            return allocation.hasFailed();
        } catch (const std::bad_alloc&) {
            return true;
        }
    }

    // What a process that reads the same file without any failure has; here and there a file that
    // the tree wrote itself.
    static void prepare(CTree& tree, long n) {
        merge(tree, kStart);
        if (n % 2 == 1) {
            textOf(tree);
            tree.textWasWritten();
        }
    }

    // A verb that fails has changed nothing, and can be tried again.
    // It may go on without the memory, too.
    void tryAll(const Verb& verb, bool mayNeedNone = false) {
        long n = 0;
        for (bool failed = true; failed; ++n) {
            ASSERT_LT(n, kMostAllocations);
            failed = false;
            for (const long written : {0, 1}) {
                CTree expected;
                CTree tree;
                prepare(expected, 0);
                prepare(tree, written);
                verb(expected);
                const std::string before = shown(tree);
                const bool failedNow = failsAt(n, tree, verb);
                failed = failed || failedNow;
                if (failedNow && shown(tree) != shown(expected)) {
                    ASSERT_EQ(shown(tree), before) << "at allocation " << n;
                    verb(tree);
                }
                ASSERT_EQ(shown(tree), shown(expected)) << "at allocation " << n;
                ASSERT_NO_FATAL_FAILURE(expectSound(tree, expected));
            }
        }
        EXPECT_TRUE(n > 1 || mayNeedNone) << "nothing is allocated here";
    }

    // Texts and readings go on as if nothing had been.
    static void expectSound(CTree& tree, CTree& expected) {
        const std::string text = textOf(expected);
        ASSERT_EQ(textOf(tree), text);
        tree.textWasWritten();
        for (CTree* const each : {&tree, &expected}) {
            merge(*each, text);
            merge(*each, text + "[c]\n\"v\"=string:later\n");
            each->addKey(at(*each, "c"), "new");
        }
        ASSERT_EQ(shown(tree), shown(expected));
        ASSERT_EQ(textOf(tree), textOf(expected));
    }

    // A reading that fails has merged some lines; the next one merges all of them.
    void tryReadings(const std::string& text) {
        long n = 0;
        for (bool failed = true; failed; ++n) {
            ASSERT_LT(n, kMostAllocations);
            failed = false;
            for (const long written : {0, 1}) {
                CTree expected;
                CTree tree;
                prepare(expected, 0);
                prepare(tree, written);
                const bool failedNow = failsAt(n, tree, [&](CTree& each) { merge(each, text); });
                failed = failed || failedNow;
                merge(expected, text);
                if (failedNow) {
                    ASSERT_NO_FATAL_FAILURE(expectRereadAfter(n, written, text));
                    merge(tree, text);
                }
                ASSERT_EQ(shown(tree), shown(expected)) << "at allocation " << n;
                ASSERT_NO_FATAL_FAILURE(expectSound(tree, expected));
            }
        }
        EXPECT_GT(n, 1) << "nothing is allocated here";
    }

    // What a tree writes after such a reading is read back as what it says, and not taken for known.
    static void expectRereadAfter(long n, long written, const std::string& text) {
        CTree tree;
        CTree whole;
        for (CTree* const each : {&tree, &whole}) {
            prepare(*each, written);
            ASSERT_TRUE(failsAt(n, *each, [&](CTree& reading) { merge(reading, text); }));
            textOf(*each);
            each->textWasWritten();
        }
        const std::string between = textOf(tree);
        merge(tree, between);
        TextOf source(between);
        CMerge(whole).run(source);
        ASSERT_EQ(shown(tree), shown(whole)) << "at allocation " << n;
    }
};

}  // namespace

TEST_F(TreeWithoutMemory, AddsKeys) {
    for (const std::string& name : {std::string("new"), kLongName, std::string("<root>")}) {
        tryAll([&](CTree& tree) { tree.addKey(at(tree, "b"), name); });
        tryAll([&](CTree& tree) { tree.addKey(at(tree, "a"), name); });
    }
}

TEST_F(TreeWithoutMemory, AddsValues) {
    for (const std::string& name : {std::string("new"), kLongName}) {
        const std::string line = composeStringLine(name, "x");
        tryAll([&](CTree& tree) { tree.addValue(at(tree, "b"), name, CRegLib::eString, line); });
        tryAll([&](CTree& tree) {
            tree.addValue(at(tree, "a"), name, CRegLib::eString,
                          "\"" + kLongName + "\"=string:spelled apart");
        });
    }
}

TEST_F(TreeWithoutMemory, AddsTheOneThatMakesManySiblingsOfFew) {
    const auto fill = [](CTree& tree, int count) {
        for (int number = 0; number < count; ++number) {
            const std::string name = std::to_string(number);
            tree.addValue(at(tree, "b"), name, CRegLib::eString, composeStringLine(name, "x"));
        }
    };
    for (const int count : {2047, 2048, 3071, 3072}) {
        for (long n = 0, failed = 1; failed != 0; ++n) {
            ASSERT_LT(n, kMostAllocations);
            CTree tree;
            prepare(tree, n);
            fill(tree, count);
            const std::string before = textOf(tree);
            const auto add = [](CTree& to) {
                to.addValue(at(to, "b"), "new", CRegLib::eString, "\"new\"=string:x");
            };
            failed = failsAt(n, tree, add) ? 1 : 0;
            if (failed != 0 && tree.countOfKind(at(tree, "b"), false) == std::size_t(count)) {
                ASSERT_EQ(textOf(tree), before);
                add(tree);
            }
            ASSERT_EQ(textOf(tree), before + "\"new\"=string:x\n");
        }
    }
}

TEST_F(TreeWithoutMemory, SetsValues) {
    for (const std::string& data : {std::string("9"), std::string("longer"), kLongName}) {
        for (const char* const name : {"v", "V"}) {
            const std::string line = composeStringLine(name, data);
            tryAll([&](CTree& tree) { tree.setValue(at(tree, "a", "v"), CRegLib::eString, line); },
                   data.size() == 1);
        }
    }
}

// A set asks for a new text now and then, and does without when there is no memory for that.
TEST_F(TreeWithoutMemory, SetsAThousandTimesWithoutRoomForANewText) {
    for (long n = 0; n < 6; ++n) {
        CTree tree;
        prepare(tree, 1);
        std::string line;
        for (std::size_t round = 0; round < 1000; ++round) {
            line = composeStringLine("v", std::string(2000 + round % 2, 'x'));
            CKeyOrValue& value = at(tree, "a", "v");
            const auto set = [&](CTree& of) { of.setValue(value, CRegLib::eString, line); };
            if (failsAt(n, tree, set)) {
                set(tree);
            }
            ASSERT_EQ(value.line(), line);
        }
        EXPECT_EQ(textOf(tree),
                  "[a]\n" + line + "\n\"w\"=dword:2\n[a/k]\n\"v\"=string:3\n[a/k/l]\n[b]\n");
    }
}

// Where the text cannot be kept up to date it is made anew later.
TEST_F(TreeWithoutMemory, RemovesEvenWithoutAny) {
    for (long n = 0; n < 5; ++n) {
        CTree tree;
        prepare(tree, 1);
        at(tree, "a", "k").m_ulKeyHandleID = 1;
        {
            const FailingAllocation allocation(n);
            EXPECT_NO_THROW(tree.remove(at(tree, "a", "v")));
            EXPECT_NO_THROW(tree.remove(at(tree, "a", "k")));
            EXPECT_NO_THROW(tree.remove(at(tree, "b")));
            EXPECT_NO_THROW(tree.sweep());
        }
        EXPECT_EQ(textOf(tree), "[a]\n\"w\"=dword:2\n");
        EXPECT_EQ(tree.size(), 3u);
    }
}

TEST_F(TreeWithoutMemory, GivesItsText) {
    for (long n = 0, failed = 1; failed != 0; ++n) {
        ASSERT_LT(n, kMostAllocations);
        CTree tree;
        prepare(tree, 1);
        tree.remove(at(tree, "a", "k"));
        at(tree, "b").m_ulKeyHandleID = 1;
        tree.remove(at(tree, "b"));
        merge(tree, "[0]\n");
        const std::string before = shown(tree);
        failed = failsAt(n, tree, [](CTree& from) { from.text(); }) ? 1 : 0;
        ASSERT_EQ(shown(tree), before);
        ASSERT_EQ(textOf(tree), "[0]\n[a]\n\"v\"=string:1\n\"w\"=dword:2\n");
    }
}

TEST_F(TreeWithoutMemory, ReducesItself) {
    for (long n = 0, failed = 1; failed != 0; ++n) {
        ASSERT_LT(n, kMostAllocations);
        CTree tree;
        CTree other;
        prepare(tree, n);
        merge(other, "[A]\n\"v\"=string:x\n[A/" + kLongName + "]\n[A/K]\n");
        const auto reduce = [&](CTree& each) { each.reduceTo(other); };
        failed = failsAt(n, tree, reduce) ? 1 : 0;
        if (failed != 0) {
            EXPECT_NE(tree.findChild(tree.root(), std::string_view("b")), nullptr);
            EXPECT_EQ(tree.countOfKind(at(tree, "a"), false), 2u);
            reduce(tree);
        }
        ASSERT_EQ(textOf(tree), "[A]\n\"v\"=string:1\n[A/K]\n");
    }
}

TEST_F(TreeWithoutMemory, ReadsATextThatDiffersByALine) {
    tryReadings(kStart);
    tryReadings(kStart + "\"" + kLongName + "\"=string:new\n");
    tryReadings(kStart + "[b/new]\n\"v\"=string:new\n");
    tryReadings("[a]\n\"v\"=string:longer\n\"w\"=dword:2\n[b]\n");
}

TEST_F(TreeWithoutMemory, ReadsATextThatIsOtherThanBefore) {
    tryReadings("[x/y/z]\n\"v\"=string:1\n[x]\n\"v\"=string:2\n[" + kLongName + "]\n");
    tryReadings("[a]\r\n\"V\"=binary:\n\"k\"=string:displaces\n[a/v]\n\"below\"=string:x\n[a]\n");
    tryReadings("[p/q]\n\"v\"=string:1\n[p/r]\n[a/s/t/u]\n\"" + kLongName + "\"=dword:1\n");
}

TEST_F(TreeWithoutMemory, DisplacesAKeyWithAHandle) {
    long failed = 1;
    for (long n = 0; failed != 0; ++n) {
        ASSERT_LT(n, kMostAllocations);
        failed = 0;
        for (const long written : {0, 1}) {
            CTree tree;
            prepare(tree, written);
            CKeyOrValue& old = at(tree, "a", "k");
            old.m_ulKeyHandleID = 1;
            const auto displace = [](CTree& each) { merge(each, "[a]\n\"k\"=string:x\n"); };
            if (failsAt(n, tree, displace)) {
                ++failed;
                const bool isDone = !at(tree, "a", "k").isKey();
                ASSERT_EQ(isDone, old.m_state == CKeyOrValue::eDisplaced);
                displace(tree);
            }
            ASSERT_EQ(tree.displaced(), 1u);
            ASSERT_EQ(tree.countOfKind(old, true) + tree.countOfKind(old, false), 2u);
            ASSERT_EQ(textOf(tree), "[a]\n\"k\"=string:x\n\"v\"=string:1\n\"w\"=dword:2\n[b]\n");
            ASSERT_EQ(old.line(), "[a/k]");
        }
    }
}
