#include "RegLib/text/LineFormat.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "unit/text/RandomText.h"

using namespace VQRegLib;
using vqtest::randomText;

namespace {

struct Names {
    int code = 0;
    std::vector<std::string> names;
};

Names namesOfKeyLine(std::string_view line) {
    Names result;
    std::string_view rest;
    result.code = parseKeyLine(line, rest);
    if (result.code >= 0) {
        for (std::string_view name; nextKeyLineName(rest, name);) {
            result.names.emplace_back(name);
        }
    }
    return result;
}

std::vector<std::string> list(std::initializer_list<const char*> names) {
    return {names.begin(), names.end()};
}

int codeOfValueLine(std::string_view line) {
    CValueLine parts;
    return parseValueLine(line, parts);
}

// What scanf makes of it; 0 when it finds no number.
std::uint32_t scanned(const std::string& text, unsigned width) {
    unsigned number = 0;
    const int count = width == 2 ? std::sscanf(text.c_str(), "%02X", &number)
                                 : std::sscanf(text.c_str(), "%08X", &number);
    return count == 1 ? number : 0;
}

}  // namespace

TEST(LineFormat, ComposesNumbersWithEightUpperCaseDigits) {
    EXPECT_EQ(composeDwordLine("Port", 8080), "\"Port\"=dword:00001F90");
    EXPECT_EQ(composeDwordLine("", 0), "\"\"=dword:00000000");
    EXPECT_EQ(composeDwordLine("a", 0xFFFFFFFFu), "\"a\"=dword:FFFFFFFF");
    EXPECT_EQ(composeDwordLine("a", 0x80ABCDEFu), "\"a\"=dword:80ABCDEF");
}

TEST(LineFormat, ComposesNumbersAsPrintfDoes) {
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        const auto number = static_cast<std::uint32_t>(random()) >> (random() % 32);
        char expected[32];
        std::snprintf(expected, sizeof expected, "\"n\"=dword:%08X", number);
        EXPECT_EQ(composeDwordLine("n", number), expected);
    }
}

TEST(LineFormat, ComposesTextsAsTheyAre) {
    EXPECT_EQ(composeStringLine("Name", " a\"b:c=d "), "\"Name\"=string: a\"b:c=d ");
    EXPECT_EQ(composeStringLine("n", ""), "\"n\"=string:");
    EXPECT_EQ(composeStringLine("n", "one\r\ntwo"), "\"n\"=string:one\r\ntwo");
    EXPECT_EQ(composeStringLine("a\"b", "x"), "\"a\"b\"=string:x");
}

TEST(LineFormat, ComposesBytesWithTwoUpperCaseDigitsEach) {
    const unsigned char bytes[] = {0x00, 0x10, 0xA4, 0xC3, 0xF2, 0x0B, 0xFF};
    EXPECT_EQ(composeBinaryLine("Mac", bytes, sizeof bytes), "\"Mac\"=binary:0010A4C3F20BFF");
    EXPECT_EQ(composeBinaryLine("Mac", bytes, 1), "\"Mac\"=binary:00");
    EXPECT_EQ(composeBinaryLine("Mac", nullptr, 0), "\"Mac\"=binary:");
}

TEST(LineFormat, RefusesMoreBytesThanATextCanHold) {
    const unsigned char byte = 0;
    EXPECT_THROW(composeBinaryLine("a", &byte, ~std::size_t{0}), std::bad_alloc);
    EXPECT_THROW(composeBinaryLine("a", &byte, ~std::size_t{0} / 2 + 1), std::bad_alloc);
}

TEST(LineFormat, ParsesTheNameAndTheTypeOfAValueLine) {
    CValueLine parts;
    ASSERT_EQ(parseValueLine("\"Port\"=dword:00001F90", parts), REGLIB_OK);
    EXPECT_EQ(parts.name, "Port");
    EXPECT_EQ(parts.type, CRegLib::eDword);
    ASSERT_EQ(parseValueLine("\"\"=binary:", parts), REGLIB_OK);
    EXPECT_EQ(parts.name, "");
    EXPECT_EQ(parts.type, CRegLib::eBinary);
    ASSERT_EQ(parseValueLine("\"a:b\"=string:x:\"y\"=z", parts), REGLIB_OK);
    EXPECT_EQ(parts.name, "a:b");
    EXPECT_EQ(parts.type, CRegLib::eString);
}

TEST(LineFormat, DoesNotLookAtTheDataOfAValueLine) {
    EXPECT_EQ(codeOfValueLine("\"a\"=dword:zz"), REGLIB_OK);
    EXPECT_EQ(codeOfValueLine("\"a\"=binary:1"), REGLIB_OK);
    EXPECT_EQ(codeOfValueLine("\"a\"=dword:"), REGLIB_OK);
}

TEST(LineFormat, TakesTheTextBetweenTheFirstTwoQuotesAsTheName) {
    CValueLine parts;
    ASSERT_EQ(parseValueLine("junk\"n\"=string:x", parts), REGLIB_OK);
    EXPECT_EQ(parts.name, "n");
    EXPECT_EQ(codeOfValueLine("\"a\"b\"=string:x"), REGLIB_E_BAD_FORMAT);
}

TEST(LineFormat, RefusesMalformedValueLines) {
    for (const char* line : {"",
                             " ",
                             "text",
                             "\"",
                             "\"a",
                             "\"a\"",
                             "\"a\" =dword:1",
                             "\"a\"dword:1",
                             "\"a\"=",
                             "\"a\"=dword",
                             "\"a\"=:1",
                             "\"a\"=DWORD:1",
                             "\"a\"=dword :1",
                             "\"a\"= dword:1",
                             "\"a\"=qword:1",
                             "\"a\"=dwor:1",
                             "\"a\"=strings:1",
                             "=dword:1",
                             "\"a:\"=dword",
                             "; comment",
                             "# comment"}) {
        EXPECT_EQ(codeOfValueLine(line), REGLIB_E_BAD_FORMAT) << line;
    }
}

TEST(LineFormat, SplitsAKeyLineAtSlashesOnly) {
    EXPECT_EQ(namesOfKeyLine("[Velquist]").names, list({"Velquist"}));
    EXPECT_EQ(namesOfKeyLine("[a/b/c]").names, list({"a", "b", "c"}));
    EXPECT_EQ(namesOfKeyLine("[a\\b]").names, list({"a\\b"}));
    EXPECT_EQ(namesOfKeyLine("[ a / b ]").names, list({" a ", " b "}));
}

TEST(LineFormat, KeepsEmptyNamesOfAKeyLineButNotBehindATrailingSlash) {
    EXPECT_EQ(namesOfKeyLine("[/a]").names, list({"", "a"}));
    EXPECT_EQ(namesOfKeyLine("[a//b]").names, list({"a", "", "b"}));
    EXPECT_EQ(namesOfKeyLine("[a/]").names, list({"a"}));
    EXPECT_EQ(namesOfKeyLine("[a//]").names, list({"a", ""}));
    EXPECT_EQ(namesOfKeyLine("[/]").names, list({""}));
    EXPECT_EQ(namesOfKeyLine("[]").names, list({}));
}

TEST(LineFormat, IgnoresWhatFollowsTheFirstClosingBracket) {
    EXPECT_EQ(namesOfKeyLine("[a/b]trailing").names, list({"a", "b"}));
    EXPECT_EQ(namesOfKeyLine("[a]/b]").names, list({"a"}));
    EXPECT_EQ(namesOfKeyLine("[[a]").names, list({"[a"}));
    EXPECT_EQ(namesOfKeyLine("[]a]").names, list({}));
}

TEST(LineFormat, RefusesAKeyLineWithoutItsBrackets) {
    EXPECT_EQ(namesOfKeyLine("[a").code, REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(namesOfKeyLine("[").code, REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(namesOfKeyLine("a]").code, REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(namesOfKeyLine("]a[").code, REGLIB_E_BAD_FORMAT);
}

TEST(LineFormat, TakesTheDataFromBehindTheFirstColon) {
    std::string_view data;
    ASSERT_EQ(dataOfLine("\"a\"=string:b:c", data), REGLIB_OK);
    EXPECT_EQ(data, "b:c");
    ASSERT_EQ(dataOfLine("\"a:x\"=string:b", data), REGLIB_OK);
    EXPECT_EQ(data, "x\"=string:b");
    ASSERT_EQ(dataOfLine("\"a\"=string:", data), REGLIB_OK);
    EXPECT_EQ(data, "");
    ASSERT_EQ(dataOfLine(":=", data), REGLIB_OK);
    EXPECT_EQ(data, "=");
}

TEST(LineFormat, TellsAMissingEqualsSignFromAMissingColon) {
    std::string_view data;
    EXPECT_EQ(dataOfLine("\"a\"string:b", data), REGLIB_E_FAIL);
    EXPECT_EQ(dataOfLine("", data), REGLIB_E_FAIL);
    EXPECT_EQ(dataOfLine("\"a\"=string", data), REGLIB_E_BAD_FORMAT);
}

TEST(LineFormat, ReadsNumbersUpToTheWidth) {
    EXPECT_EQ(scanHex("00001F90", 8), 0x1F90u);
    EXPECT_EQ(scanHex("1F90abcd77", 8), 0x1F90ABCDu);
    EXPECT_EQ(scanHex("1F", 2), 0x1Fu);
    EXPECT_EQ(scanHex("1Fab", 2), 0x1Fu);
    EXPECT_EQ(scanHex("F", 2), 0xFu);
    EXPECT_EQ(scanHex("1G", 2), 1u);
    EXPECT_EQ(scanHex("", 8), 0u);
    EXPECT_EQ(scanHex("G1", 8), 0u);
}

TEST(LineFormat, ReadsNumbersAsScanfDoes) {
    std::mt19937 random(2);
    for (int i = 0; i < 200000; ++i) {
        const std::string text = randomText(random, " \t\v019aAfFgGxX+-0", 12);
        for (const unsigned width : {2u, 8u}) {
            ASSERT_EQ(scanHex(text, width), scanned(text, width)) << "\"" << text << "\" " << width;
        }
    }
}

TEST(LineFormat, ParsesWhatItComposes) {
    std::mt19937 random(3);
    for (int i = 0; i < 5000; ++i) {
        const std::string name = randomText(random, "aB cd=[]/\\.;", 20);
        const std::string text = randomText(random, "xyz \"=:[]", 30);
        CValueLine parts;
        std::string_view data;
        const std::string line = composeStringLine(name, text);
        ASSERT_EQ(parseValueLine(line, parts), REGLIB_OK) << line;
        EXPECT_EQ(parts.name, name);
        EXPECT_EQ(parts.type, CRegLib::eString);
        ASSERT_EQ(dataOfLine(line, data), REGLIB_OK);
        EXPECT_EQ(data, text);
        const auto number = static_cast<std::uint32_t>(random());
        const std::string numberLine = composeDwordLine(name, number);
        ASSERT_EQ(dataOfLine(numberLine, data), REGLIB_OK);
        EXPECT_EQ(scanHex(data, 8), number);
        EXPECT_TRUE(isDwordLine(numberLine, name, number));
        EXPECT_TRUE(isStringLine(line, name, text));
    }
}

TEST(LineFormat, TellsWhatALineLacksOfAValueLine) {
    for (const auto& [line, fault] :
         {std::pair("", eLineFault::eNoQuote), std::pair("[a]", eLineFault::eNoQuote),
          std::pair("\"", eLineFault::eNotClosed), std::pair("x\"a=b:c", eLineFault::eNotClosed),
          std::pair("\"a\"", eLineFault::eNoEquals), std::pair("\"a\":=", eLineFault::eNoEquals),
          std::pair("\"a\"=", eLineFault::eNoColon), std::pair("\"a:\"=x", eLineFault::eNoColon),
          std::pair("\"a\"=:", eLineFault::eNoType), std::pair("\"a\"=none:", eLineFault::eNoType),
          std::pair("\"a\"=String:", eLineFault::eNoType),
          std::pair("\"a\"=string:", eLineFault::eNone)}) {
        CValueLine parts;
        EXPECT_EQ(splitValueLine(line, parts), fault) << line;
        EXPECT_EQ(codeOfValueLine(line),
                  fault == eLineFault::eNone ? REGLIB_OK : REGLIB_E_BAD_FORMAT);
    }
}

TEST(LineFormat, DoesNotLookBehindTheEndOfALine) {
    const std::string_view text = "\"a\"=string:b";
    for (std::size_t size = 0; size < text.size() - 2; ++size) {
        EXPECT_EQ(codeOfValueLine(text.substr(0, size)), REGLIB_E_BAD_FORMAT) << size;
    }
    EXPECT_EQ(codeOfValueLine(text.substr(0, text.size() - 1)), REGLIB_OK);
}

TEST(LineFormat, AFaultLeavesWhatStandsBeforeIt) {
    CValueLine open;
    splitValueLine("x\"ab=", open);
    EXPECT_EQ(open.name, "ab=");
    CValueLine closed;
    splitValueLine("x\"ab\":", closed);
    EXPECT_EQ(closed.name, "ab");
    CValueLine untyped;
    splitValueLine("\"ab\"= DWORD:1", untyped);
    EXPECT_EQ(untyped.name, "ab");
    EXPECT_EQ(untyped.typeWord, " DWORD");
    EXPECT_EQ(untyped.type, CRegLib::eNone);
}

TEST(LineFormat, EachTypeHasItsWord) {
    for (const auto& [type, word] :
         {std::pair(CRegLib::eBinary, "binary"), std::pair(CRegLib::eDword, "dword"),
          std::pair(CRegLib::eString, "string"), std::pair(CRegLib::eNone, "")}) {
        EXPECT_EQ(wordOfType(type), word);
        EXPECT_EQ(typeOfWord(word), type);
    }
    EXPECT_EQ(wordOfType(static_cast<CRegLib::eDataType>(7)), "");
    for (const char* word : {"DWORD", "dwor", "dwords", " dword", "none"}) {
        EXPECT_EQ(typeOfWord(word), CRegLib::eNone) << word;
    }
}

TEST(LineFormat, KnowsTheSizeOfALineBeforeItIsComposed) {
    const std::string bytes(33, 'x');
    const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
    for (const std::string name : {"", "n", "a longer name"}) {
        EXPECT_EQ(valueLineSize(name.size(), CRegLib::eDword, 0), composeDwordLine(name, 7).size());
        for (const std::size_t size : {0u, 1u, 33u}) {
            EXPECT_EQ(valueLineSize(name.size(), CRegLib::eString, size),
                      composeStringLine(name, bytes.substr(0, size)).size());
            EXPECT_EQ(valueLineSize(name.size(), CRegLib::eBinary, size),
                      composeBinaryLine(name, data, size).size());
        }
    }
}

TEST(LineFormat, WritesBytesAsTheLineHasThem) {
    EXPECT_EQ(hexText(std::string_view("\0\x1f\xAB", 3)), "001FAB");
    EXPECT_EQ(hexText(""), "");
    EXPECT_EQ(hexText(std::string(40, '\xC0')).size(), 80u);
}

TEST(LineFormat, KnowsBlanksAndDigitsAsTheCLibraryDoes) {
    for (int c = -128; c < 128; ++c) {
        const auto letter = static_cast<char>(c);
        EXPECT_EQ(isBlank(letter), std::isspace(static_cast<unsigned char>(letter)) != 0) << c;
        EXPECT_EQ(isHexDigit(letter), std::isxdigit(static_cast<unsigned char>(letter)) != 0) << c;
    }
}

TEST(LineFormat, BytesAreReadByTheRuleOfNumbers) {
    for (unsigned pair = 0; pair < 0x10000; ++pair) {
        const std::string digits = {static_cast<char>(pair >> 8), static_cast<char>(pair), '7',
                                    'a'};
        unsigned char bytes[2] = {};
        scanBytes(digits, bytes, 2);
        ASSERT_EQ(bytes[0], static_cast<unsigned char>(scanHex(digits, 2))) << pair;
        ASSERT_EQ(bytes[1], 0x7A);
        scanBytes(digits.substr(1, 1), bytes, 1);
        ASSERT_EQ(bytes[0], static_cast<unsigned char>(scanHex(digits.substr(1, 1), 2))) << pair;
    }
}
