// Two texts, of which the second is compared with the first.
#ifndef VQTEST_TREE_STEP_FIXTURE_H
#define VQTEST_TREE_STEP_FIXTURE_H

#include <cstddef>
#include <string>

#include "RegLib/tree/Step.h"
#include "unit/tree/TreeFixture.h"

namespace vqtest {

class StepFixture : public TreeFixture {
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
        VQRegLib::CTree stepped;
        PlainTree plain;
        TextOf first(before);
        VQRegLib::mergeText(stepped, first);
        plain.merge(before);
        TextOf second(after);
        const VQRegLib::CMergeResult result = VQRegLib::mergeText(stepped, second);
        const PlainOutcome expected = plain.merge(after);
        EXPECT_EQ(result.code, expected.code) << after;
        EXPECT_EQ(result.isEmpty, expected.isEmpty) << after;
        EXPECT_EQ(second.wasReadWhole(), !isCompared) << after;
        EXPECT_EQ(second.rewinds(), isCompared ? 0 : 1) << after;
        EXPECT_EQ(dumpOf(stepped), plain.dump(plain.root())) << after;
        EXPECT_EQ(textOf(stepped), plain.text()) << after;
    }
};

constexpr char kSmall[] = "[a]\n\"m\"=string:1\n\"p\"=string:2\n[a/k]\n\"m\"=string:3\n[b]\n";

inline std::string withLine(const std::string& text, const std::string& before,
                            const std::string& line) {
    const std::size_t at = before.empty() ? text.size() : text.find(before);
    return text.substr(0, at) + line + text.substr(at);
}

inline std::string without(const std::string& text, const std::string& lines) {
    const std::size_t at = text.find(lines);
    return text.substr(0, at) + text.substr(at + lines.size());
}

}  // namespace vqtest

#endif  // VQTEST_TREE_STEP_FIXTURE_H
