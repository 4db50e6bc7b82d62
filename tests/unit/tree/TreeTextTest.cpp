#include "RegLib/tree/TreeText.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using namespace VQRegLib;

namespace {

std::string allOf(const CTreeText& text) {
    std::string all;
    for (const std::string_view piece : text.pieces()) {
        EXPECT_TRUE(piece.ends_with('\n'));
        all += piece;
    }
    return all;
}

class TreeText : public testing::Test {
protected:
    std::string_view keep(const std::string& line) { return {m_text.keep(line), line.size()}; }

    void setWhole(const std::string& text) {
        char* const block = m_text.addBlock(text.size());
        text.copy(block, text.size());
        m_text.setPieces({{block, text.size()}});
        for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
            m_lines.emplace_back(block + at, text.find('\n', at) - at);
        }
    }

    CTreeText m_text;
    std::vector<std::string_view> m_lines;
};

}  // namespace

TEST_F(TreeText, IsUnknownAtFirstAndWhenForgotten) {
    EXPECT_FALSE(m_text.isKnown());
    setWhole("a\n");
    EXPECT_TRUE(m_text.isKnown());
    m_text.forget();
    EXPECT_FALSE(m_text.isKnown());
    EXPECT_TRUE(m_text.pieces().empty());
}

TEST_F(TreeText, MayBeEmptyAndKnown) {
    m_text.setPieces({});
    EXPECT_TRUE(m_text.isKnown());
    EXPECT_EQ(allOf(m_text), "");
    EXPECT_TRUE(m_text.isEnd(m_text.placeOf("elsewhere")));
}

TEST_F(TreeText, KeepsLinesWithTheirEnds) {
    std::vector<std::string_view> kept;
    std::size_t size = 0;
    for (std::size_t number = 0; number < 2000; ++number) {
        const std::string line(number % 700, static_cast<char>('a' + number % 26));
        kept.push_back(keep(line));
        size += line.size() + 1;
    }
    for (std::size_t number = 0; number < kept.size(); ++number) {
        ASSERT_EQ(kept[number], std::string(number % 700, static_cast<char>('a' + number % 26)));
        ASSERT_EQ(kept[number].data()[kept[number].size()], '\n');
    }
    EXPECT_EQ(m_text.keptSize(), size);
    EXPECT_EQ(keep(std::string(1000000, 'x')).size(), 1000000u);
    m_text.settle();
    EXPECT_EQ(m_text.keptSize(), 0u);
}

TEST_F(TreeText, DropsTheBlocksBeforeAnother) {
    setWhole("old\n");
    const std::size_t old = m_text.blocks();
    setWhole("new\n");
    m_text.dropBlocksBefore(old);
    EXPECT_EQ(m_text.blocks(), 1u);
    EXPECT_EQ(allOf(m_text), "new\n");
}

TEST_F(TreeText, ReplacesALineByALongerAShorterAndNone) {
    setWhole("one\ntwo\nthree\n");
    const std::string_view two = keep("a longer two");
    m_text.replace(m_lines[1], two);
    EXPECT_EQ(allOf(m_text), "one\na longer two\nthree\n");
    const std::string_view first = keep("1");
    m_text.replace(m_lines[0], first);
    EXPECT_EQ(allOf(m_text), "1\na longer two\nthree\n");
    m_text.erase(two);
    EXPECT_EQ(allOf(m_text), "1\nthree\n");
    m_text.erase(m_lines[2]);
    m_text.erase(first);
    EXPECT_EQ(allOf(m_text), "");
    EXPECT_TRUE(m_text.isKnown());
}

TEST_F(TreeText, InsertsBehindALine) {
    setWhole("one\ntwo\n");
    const std::string_view between = keep("between");
    m_text.insertAfter(m_lines[0], between);
    m_text.insertAfter(between, keep("more"));
    m_text.insertAfter(m_lines[1], keep("last"));
    EXPECT_EQ(allOf(m_text), "one\nbetween\nmore\ntwo\nlast\n");
}

TEST_F(TreeText, IsForgottenWhenALineIsNotInIt) {
    setWhole("one\n");
    m_text.replace("elsewhere", keep("x"));
    EXPECT_FALSE(m_text.isKnown());
    setWhole("one\n");
    m_text.insertAfter("elsewhere", keep("x"));
    EXPECT_FALSE(m_text.isKnown());
    m_text.replace(m_lines[0], keep("x"));
    EXPECT_FALSE(m_text.isKnown());
}

TEST_F(TreeText, FindsPlacesInItsPieces) {
    setWhole("one\ntwo\nthree\n");
    m_text.replace(m_lines[1], keep("2"));
    ASSERT_EQ(m_text.pieces().size(), 3u);
    const CTreeText::CPlace middle = m_text.placeOf(m_lines[2].data());
    EXPECT_EQ(middle.piece, 2u);
    EXPECT_EQ(middle.offset, 0u);
    EXPECT_EQ(m_text.from(middle), "three\n");
    EXPECT_EQ(m_text.from(m_text.placeOf(m_lines[0].data() + 1)), "ne\n");
    EXPECT_TRUE(m_text.isEnd(m_text.placeOf(m_lines[1].data()))) << "it is no longer in the text";
}

TEST_F(TreeText, GoesOnFromAPlaceOverThePieces) {
    setWhole("one\ntwo\nthree\n");
    m_text.replace(m_lines[1], keep("2"));
    const std::string all = allOf(m_text);
    for (std::size_t from = 0; from < all.size(); ++from) {
        for (std::size_t to = from; to < all.size(); ++to) {
            const CTreeText::CPlace place = m_text.advanced(m_text.advanced({}, from), to - from);
            ASSERT_FALSE(m_text.isEnd(place));
            ASSERT_EQ(m_text.from(place)[0], all[to]);
            ASSERT_LT(place.offset, m_text.pieces()[place.piece].size());
        }
    }
    const CTreeText::CPlace end = m_text.advanced({}, all.size());
    EXPECT_TRUE(m_text.isEnd(end));
    EXPECT_EQ(end.offset, 0u);
}

TEST_F(TreeText, IsForgottenInsteadOfFallingIntoTooManyPieces) {
    std::string text;
    for (int line = 0; line < 2000; ++line) {
        text += "line\n";
    }
    setWhole(text);
    std::size_t most = 0;
    for (std::size_t line = 1; line < m_lines.size() && m_text.isKnown(); line += 2) {
        m_text.replace(m_lines[line], keep("another line"));
        most = std::max(most, m_text.pieces().size());
    }
    EXPECT_FALSE(m_text.isKnown());
    EXPECT_LT(most, 600u);
    EXPECT_GT(most, 200u);
}

// Lines replaced, inserted and spliced anywhere, against a list of lines.
TEST_F(TreeText, IsWhatAPlainListOfLinesIs) {
    std::mt19937 random(6);
    for (int round = 0; round < 60; ++round) {
        m_lines.clear();
        setWhole("a\nbb\nccc\ndddd\neeeee\n");
        for (int step = 0; step < 200 && m_text.isKnown(); ++step) {
            const std::size_t at = m_lines.empty() ? 0 : random() % m_lines.size();
            const auto place = m_lines.begin() + static_cast<std::ptrdiff_t>(at);
            const std::string_view added = keep(std::string(1 + random() % 9, 'n'));
            if (m_lines.empty() || random() % 5 == 0) {
                const std::size_t count = m_lines.empty() ? 0 : random() % (m_lines.size() - at);
                std::size_t size = 0;
                for (std::size_t more = 0; more < count; ++more) {
                    size += m_lines[at + more].size() + 1;
                }
                const CTreeText::CPlace begin =
                    m_lines.empty() ? CTreeText::CPlace{} : m_text.placeOf(place->data());
                m_text.splice(begin, m_text.advanced(begin, size),
                              {added.data(), added.size() + 1});
                m_lines.insert(m_lines.erase(place, place + static_cast<std::ptrdiff_t>(count)),
                               added);
            } else if (random() % 3 == 0) {
                m_text.insertAfter(*place, added);
                m_lines.insert(place + 1, added);
            } else if (random() % 2 == 0) {
                m_text.replace(*place, added);
                *place = added;
            } else {
                m_text.erase(*place);
                m_lines.erase(place);
            }
            std::string expected;
            for (const std::string_view line : m_lines) {
                expected.append(line).append("\n");
            }
            ASSERT_EQ(allOf(m_text), expected);
        }
        EXPECT_TRUE(m_text.isKnown());
    }
}
