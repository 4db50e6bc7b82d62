#include "RegLib/text/LineSplitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using namespace std::string_literals;
using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::kLongestPiece;

namespace {

std::vector<std::string> lines(std::string_view text) {
    std::vector<std::string> result;
    for (std::string_view line; VQRegLib::takeLine(text, true, line);) {
        result.emplace_back(line);
    }
    EXPECT_EQ(text, "");
    return result;
}

std::vector<std::string> pieces(std::string_view text) {
    std::vector<std::string> result;
    for (std::string_view piece; VQRegLib::takePiece(text, true, piece);) {
        result.emplace_back(piece);
    }
    return result;
}

// The text comes bit by bit, as from a stream.
std::vector<std::string> linesOfStream(std::string_view text, std::size_t step) {
    std::vector<std::string> result;
    std::size_t begin = 0;
    std::size_t end = 0;
    for (;;) {
        std::string_view rest = text.substr(begin, end - begin);
        std::string_view line;
        if (VQRegLib::takeLine(rest, end == text.size(), line)) {
            begin = end - rest.size();
            result.emplace_back(line);
        } else if (end == text.size()) {
            return result;
        } else {
            end = std::min(text.size(), end + step);
        }
    }
}

std::string repeated(std::size_t size) {
    return std::string(size, 'x');
}

}  // namespace

TEST(LineSplitter, FindsNothingInAnEmptyText) {
    EXPECT_THAT(lines(""), IsEmpty());
}

TEST(LineSplitter, EndsLinesAtTheLineFeed) {
    EXPECT_THAT(lines("a\nbc\n"), ElementsAre("a", "bc"));
    EXPECT_THAT(lines("a\nbc"), ElementsAre("a", "bc"));
    EXPECT_THAT(lines("\n\na\n\n"), ElementsAre("", "", "a", ""));
}

TEST(LineSplitter, CutsALineAtItsFirstCarriageReturn) {
    EXPECT_THAT(lines("a\r\nb\rc\r\n\r\n\rd\ne\r"), ElementsAre("a", "b", "", "", "e"));
}

TEST(LineSplitter, CutsALineAtANulBeforeAll) {
    EXPECT_THAT(lines("a\0b\nc\n\0d\n"sv), ElementsAre("a", "c", ""));
    EXPECT_THAT(lines("a\0b\rc\nd\r\0\n"sv), ElementsAre("a", "d"));
    EXPECT_THAT(lines("\0"sv), ElementsAre(""));
}

TEST(LineSplitter, KeepsOtherBytesAsTheyAre) {
    EXPECT_THAT(lines("\t \v\f\x01\xFF\x80\n"), ElementsAre("\t \v\f\x01\xFF\x80"));
}

TEST(LineSplitter, TakesPiecesOfAtMost2048Characters) {
    EXPECT_EQ(kLongestPiece, 2048u);
    EXPECT_THAT(lines(repeated(2047) + "\nb\n"), ElementsAre(repeated(2047), "b"));
    EXPECT_THAT(lines(repeated(2048) + "\nb\n"), ElementsAre(repeated(2048), "", "b"));
    EXPECT_THAT(lines(repeated(2046) + "\r\nb\n"), ElementsAre(repeated(2046), "b"));
    EXPECT_THAT(lines(repeated(2047) + "\r\nb\n"), ElementsAre(repeated(2047), "", "b"));
    EXPECT_THAT(lines(repeated(2049) + "\n"), ElementsAre(repeated(2048), "x"));
    EXPECT_THAT(lines(repeated(5000)), ElementsAre(repeated(2048), repeated(2048), repeated(904)));
}

TEST(LineSplitter, CutsEachPieceByItself) {
    EXPECT_THAT(lines("a\r" + repeated(2046) + "b\n"), ElementsAre("a", "b"));
    EXPECT_THAT(lines("a\0"s + repeated(2046) + "b\n"), ElementsAre("a", "b"));
}

TEST(LineSplitter, HandsOutPiecesWithTheirLineEnds) {
    EXPECT_THAT(pieces("a\r\n\nb\rc\nd"), ElementsAre("a\r\n", "\n", "b\rc\n", "d"));
    EXPECT_THAT(pieces(repeated(2048) + "\n"), ElementsAre(repeated(2048), "\n"));
}

TEST(LineSplitter, WaitsForMoreOfATextThatGoesOn) {
    std::string_view rest = "a\nbc";
    std::string_view line;
    ASSERT_TRUE(VQRegLib::takeLine(rest, false, line));
    EXPECT_EQ(line, "a");
    EXPECT_FALSE(VQRegLib::takeLine(rest, false, line));
    EXPECT_EQ(rest, "bc");
    EXPECT_TRUE(VQRegLib::takeLine(rest, true, line));
    EXPECT_EQ(line, "bc");
    EXPECT_FALSE(VQRegLib::takeLine(rest, false, line));
    EXPECT_FALSE(VQRegLib::takeLine(rest, true, line));
}

TEST(LineSplitter, DoesNotWaitForMoreThanTheLongestPiece) {
    const std::string text = repeated(2048);
    std::string_view rest = text;
    std::string_view line;
    EXPECT_TRUE(VQRegLib::takeLine(rest, false, line));
    EXPECT_EQ(line.size(), 2048u);
    rest = std::string_view(text).substr(1);
    EXPECT_FALSE(VQRegLib::takeLine(rest, false, line));
}

TEST(LineSplitter, LinesAreViewsOfTheText) {
    const std::string text = "ab\r\ncd";
    std::string_view rest = text;
    std::string_view line;
    ASSERT_TRUE(VQRegLib::takeLine(rest, true, line));
    EXPECT_EQ(line.data(), text.data());
    ASSERT_TRUE(VQRegLib::takeLine(rest, true, line));
    EXPECT_EQ(line.data(), text.data() + 4);
}

TEST(LineSplitter, CutsAStreamAsItCutsTheWholeText) {
    std::mt19937 random(6);
    for (int round = 0; round < 60; ++round) {
        std::string text;
        while (text.size() < 20000) {
            text += repeated(random() % 5 == 0 ? 2040 + random() % 20 : random() % 90);
            text += "\n\r\0\n"[random() % 4];
        }
        const std::size_t step = 1 + random() % 3000;
        ASSERT_EQ(linesOfStream(text, step), lines(text)) << step;
    }
}
