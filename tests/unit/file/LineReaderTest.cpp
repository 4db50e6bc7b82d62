#include "RegLib/file/LineReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <string>
#include <vector>

#include "support/FileOpsFake.h"
#include "support/TempStore.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::CFileOps;
using VQRegLib::CLineReader;

namespace {

constexpr std::size_t kBlock = 64 * 1024;

class LineReader : public testing::Test {
protected:
    std::vector<std::string> lines(const std::string& text) {
        store.write(text);
        std::FILE* const opened = CFileOps::current().openForReading(store.path().c_str());
        if (!opened) {
            ADD_FAILURE() << "cannot open";
            return {};
        }
        std::vector<std::string> result;
        {
            CLineReader reader(opened);
            for (std::string_view line; reader.next(line);) {
                result.emplace_back(line);
            }
            error = reader.error();
            std::string_view more;
            EXPECT_FALSE(reader.next(more));
        }
        CFileOps::current().close(opened);
        return result;
    }

    TempStore store;
    int error = -1;
};

std::string repeated(std::size_t size, char letter = 'x') {
    return std::string(size, letter);
}

// Line by line with fgets and a buffer of 2049 bytes.
std::vector<std::string> linesOfFgets(const std::string& path) {
    std::vector<std::string> result;
    std::FILE* const opened = std::fopen(path.c_str(), "r");
    char buffer[2049];
    while (std::fgets(buffer, sizeof buffer, opened)) {
        std::string line = buffer;
        const std::size_t end = line.find(line.find('\r') != std::string::npos ? '\r' : '\n');
        result.push_back(line.substr(0, end));
    }
    std::fclose(opened);
    return result;
}

}  // namespace

TEST_F(LineReader, FindsNothingInAnEmptyFile) {
    EXPECT_THAT(lines(""), IsEmpty());
    EXPECT_EQ(error, 0);
}

TEST_F(LineReader, EndsLinesAtTheLineFeed) {
    EXPECT_THAT(lines("a\nbc\n"), ElementsAre("a", "bc"));
}

TEST_F(LineReader, DoesWithoutTheLastLineFeed) {
    EXPECT_THAT(lines("a\nbc"), ElementsAre("a", "bc"));
}

TEST_F(LineReader, HandsOutEmptyLines) {
    EXPECT_THAT(lines("\n\na\n\n"), ElementsAre("", "", "a", ""));
}

TEST_F(LineReader, CutsALineAtItsFirstCarriageReturn) {
    EXPECT_THAT(lines("a\r\nb\rc\r\n\r\n\rd\ne\r"), ElementsAre("a", "b", "", "", "e"));
}

TEST_F(LineReader, CutsALineAtANul) {
    using namespace std::string_literals;
    EXPECT_THAT(lines("a\0b\nc\n\0d\n"s), ElementsAre("a", "c", ""));
    EXPECT_THAT(lines("a\0b\rc\nd\r\0\n"s), ElementsAre("a", "d"));
}

TEST_F(LineReader, HandsOut2047CharactersAsOneLine) {
    EXPECT_THAT(lines(repeated(2047) + "\nb\n"), ElementsAre(repeated(2047), "b"));
    EXPECT_THAT(lines(repeated(2046) + "\r\nb\n"), ElementsAre(repeated(2046), "b"));
}

TEST_F(LineReader, CutsALineOf2048CharactersFromItsLineFeed) {
    EXPECT_THAT(lines(repeated(2048) + "\nb\n"), ElementsAre(repeated(2048), "", "b"));
    EXPECT_THAT(lines(repeated(2047) + "\r\nb\n"), ElementsAre(repeated(2047), "", "b"));
}

TEST_F(LineReader, HandsOutALongerLineInPieces) {
    EXPECT_THAT(lines(repeated(2049) + "\n"), ElementsAre(repeated(2048), "x"));
    EXPECT_THAT(lines(repeated(2048) + "\r\n"), ElementsAre(repeated(2048), ""));
    EXPECT_THAT(lines(repeated(5000)), ElementsAre(repeated(2048), repeated(2048), repeated(904)));
}

TEST_F(LineReader, HandsOut2048CharactersAtTheEndOfTheFileAsOneLine) {
    EXPECT_THAT(lines(repeated(2048)), ElementsAre(repeated(2048)));
}

TEST_F(LineReader, CutsEachPieceAtItsOwnCarriageReturn) {
    EXPECT_THAT(lines("a\r" + repeated(2046) + "b\n"), ElementsAre("a", "b"));
}

TEST_F(LineReader, ReadsLinesAcrossItsBlocks) {
    for (const std::size_t before : {kBlock - 5, kBlock - 1, kBlock, kBlock + 1}) {
        std::string text;
        std::vector<std::string> expected;
        while (text.size() + 100 < before) {
            expected.push_back(repeated(63, 'y'));
            text += expected.back() + "\n";
        }
        expected.push_back(repeated(before - text.size() - 1, 'z'));
        text += expected.back() + "\n";
        expected.push_back("straddling");
        text += "straddling\r\n";
        EXPECT_EQ(lines(text), expected) << before;
    }
}

TEST_F(LineReader, ReadsAFileOfExactlyOneBlock) {
    const auto read = lines(repeated(kBlock - 3) + "\nb\n");
    ASSERT_EQ(read.size(), (kBlock - 3) / 2048 + 2);
    EXPECT_EQ(read.back(), "b");
}

TEST_F(LineReader, ReadsAnyTextAsFgetsDoes) {
    std::mt19937 random(5);
    for (int round = 0; round < 40; ++round) {
        std::string text;
        for (int lineNumber = 0; lineNumber < 60; ++lineNumber) {
            const std::size_t size = random() % 4 == 0 ? 2040 + random() % 20 : random() % 5000;
            text += repeated(size, static_cast<char>('a' + lineNumber % 26));
            if (random() % 5 == 0 && !text.empty()) {
                text[random() % text.size()] = "\r\0\n"[random() % 3];
            }
            text += random() % 3 == 0 ? "\r\n" : "\n";
        }
        const auto read = lines(text);
        ASSERT_EQ(read, linesOfFgets(store.path()));
    }
}

TEST_F(LineReader, StopsAtAReadErrorAndRemembersIt) {
    FileOpsFake files;
    files.fail(FileCall::eRead, EIO);
    EXPECT_THAT(lines("a\nb\n"), IsEmpty());
    EXPECT_EQ(error, EIO);
}

TEST_F(LineReader, HandsOutTheWholeLinesBeforeAReadError) {
    FileOpsFake files;
    files.breakReadingAfter(5, ENXIO);
    EXPECT_THAT(lines("a\nb\nccc\nd\n"), ElementsAre("a", "b"));
    EXPECT_EQ(error, ENXIO);
}

TEST_F(LineReader, HandsOutTheBlocksBeforeAReadError) {
    FileOpsFake files;
    files.fail(FileCall::eRead, EIO, 1);
    const std::string line = repeated(1023) + "\n";
    std::string text;
    for (int i = 0; i < 100; ++i) {
        text += line;
    }
    EXPECT_EQ(lines(text).size(), kBlock / line.size());
    EXPECT_EQ(error, EIO);
}

TEST_F(LineReader, ReadsInBlocks) {
    FileOpsFake files;
    lines(repeated(100, '\n'));
    EXPECT_EQ(files.count(FileCall::eRead), 1);
    files.clear();
    lines(repeated(3 * kBlock, '\n'));
    EXPECT_LE(files.count(FileCall::eRead), 4);
}
