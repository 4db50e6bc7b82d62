// Whole texts: cut into lines, taken apart and put together again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/LineSplitter.h"
#include "RegLib/text/ValueData.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

std::string quotedData(std::string_view line, CRegLib::eDataType type) {
    std::string data(4096, '?');
    unsigned long size = data.size();
    const int result =
        giveData(line, type, {reinterpret_cast<unsigned char*>(data.data()), size, &size});
    EXPECT_GE(result, 0) << line;
    data.resize(size);
    return type == CRegLib::eString ? data.c_str() : hexText(data);
}

// What a line is: "key a|b", "string name=data", or "bad".
std::string meaning(std::string_view line) {
    if (line.starts_with('[')) {
        std::string_view path;
        if (parseKeyLine(line, path) < 0) {
            return "bad";
        }
        std::string text = "key";
        for (std::string_view name; nextKeyLineName(path, name);) {
            text += (text == "key" ? " " : "|") + std::string(name);
        }
        return text;
    }
    CValueLine parts;
    if (parseValueLine(line, parts) < 0) {
        return "bad";
    }
    return std::string(wordOfType(parts.type)) + " " + std::string(parts.name) + "=" +
           quotedData(line, parts.type);
}

std::vector<std::string> meanings(std::string_view text) {
    std::vector<std::string> result;
    for (std::string_view line; takeLine(text, true, line);) {
        result.push_back(meaning(line));
    }
    return result;
}

std::string lineOfBytes(std::size_t count) {
    const std::vector<unsigned char> bytes(count, 0xAB);
    return composeBinaryLine("Raw", bytes.data(), bytes.size());
}

}  // namespace

TEST(FileText, AnEmptyOneHasNoLines) {
    EXPECT_THAT(meanings(""), IsEmpty());
}

TEST(FileText, ComesApartAsItWasPutTogether) {
    const char* const text =
        "[Velquist]\n"
        "\"Version\"=string:4.2 build 17\n"
        "[Velquist/Network]\n"
        "\"MacAddr\"=binary:0010A4C3F20B\n"
        "\"Port\"=dword:00001F90\n";
    const auto apart =
        ElementsAre("key Velquist", "string Version=4.2 build 17", "key Velquist|Network",
                    "binary MacAddr=0010A4C3F20B", "dword Port=901F0000");
    EXPECT_THAT(meanings(text), apart);
    std::string withCarriageReturns;
    for (const char c : std::string(text)) {
        withCarriageReturns += c == '\n' ? "\r\n" : std::string(1, c);
    }
    EXPECT_THAT(meanings(withCarriageReturns), apart);
}

TEST(FileText, HasNoEmptyLinesAndNoComments) {
    EXPECT_THAT(meanings("[a]\n\n"), ElementsAre("key a", "bad"));
    EXPECT_THAT(meanings("[a]\n# b\n; c\n \n"), ElementsAre("key a", "bad", "bad", "bad"));
    EXPECT_THAT(meanings(" [a]\n"), ElementsAre("bad"));
}

TEST(FileText, IgnoresWhatFollowsAKeysBracket) {
    EXPECT_THAT(meanings("[a/b]trailing\n"), ElementsAre("key a|b"));
    EXPECT_THAT(meanings("[a\n"), ElementsAre("bad"));
    EXPECT_THAT(meanings("[]\n"), ElementsAre("key"));
}

TEST(FileText, ATextKeepsItsBlanksQuotesAndColons) {
    const std::string text = "  a \"b\": [c]=d\t";
    EXPECT_THAT(meanings(composeStringLine("s", text) + "\n"), ElementsAre("string s=" + text));
}

TEST(FileText, ALineEndInATextSplitsItsLine) {
    EXPECT_THAT(meanings(composeStringLine("s", "one\ntwo") + "\n"),
                ElementsAre("string s=one", "bad"));
    EXPECT_THAT(meanings(composeStringLine("s", "one\n\"t\"=string:two") + "\n"),
                ElementsAre("string s=one", "string t=two"));
    EXPECT_THAT(meanings(composeStringLine("s", "one\rtwo") + "\n"), ElementsAre("string s=one"));
}

TEST(FileText, AValueMayBeAsLongAsItsLineIsRead) {
    const std::size_t start = lineOfBytes(0).size();
    const std::size_t most = (kLongestPiece - 1 - start) / 2;
    EXPECT_THAT(meanings(lineOfBytes(most) + "\n"), Not(testing::Contains("bad")));
    EXPECT_EQ(meanings(lineOfBytes(most) + "\n").size(), 1u);
    const auto tooLong = meanings(lineOfBytes(most + 1) + "\n");
    EXPECT_EQ(tooLong.size(), 2u);
    EXPECT_EQ(tooLong.back(), "bad");
}

TEST(FileText, ALineOfExactlyTheLongestPieceLeavesAnEmptyOne) {
    const std::string line =
        composeStringLine("s", std::string(kLongestPiece - composeStringLine("s", "").size(), 'x'));
    ASSERT_EQ(line.size(), kLongestPiece);
    EXPECT_EQ(meanings(line).size(), 1u);
    EXPECT_EQ(meanings(line + "\n").back(), "bad");
    EXPECT_EQ(meanings(line.substr(1) + "\n").size(), 1u);
}

TEST(FileText, AnythingThatIsComposedComesBack) {
    std::mt19937 random(11);
    for (int round = 0; round < 500; ++round) {
        std::string text;
        std::vector<std::string> expected;
        for (int lineNumber = 0; lineNumber < 20; ++lineNumber) {
            std::string name(random() % 20, ' ');
            std::string data(random() % 60, ' ');
            for (char& c : name) {
                c = " abcXYZ[]/=.\xFF"[random() % 13];
            }
            for (char& c : data) {
                c = " abcXYZ[]/\":=\t\xFF"[random() % 15];
            }
            if (random() % 2) {
                text += composeStringLine(name, data) + "\n";
                expected.push_back("string " + name + "=" + data);
            } else {
                text += composeBinaryLine(name, reinterpret_cast<const unsigned char*>(data.data()),
                                          data.size()) +
                        "\n";
                expected.push_back("binary " + name + "=" + hexText(data));
            }
        }
        ASSERT_EQ(meanings(text), expected);
    }
}
