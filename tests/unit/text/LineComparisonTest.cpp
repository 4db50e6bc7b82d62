// Telling the line of a value from every other, without composing it.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "RegLib/text/LineFormat.h"
#include "unit/text/RandomText.h"

using namespace VQRegLib;
using vqtest::randomText;

namespace {

// Every change of one place in a line, and lines that are a little shorter or longer.
std::vector<std::string> neighbours(const std::string& line) {
    std::vector<std::string> result = {"", line + "0", line + std::string(1, '\0'), "x" + line};
    for (std::size_t at = 0; at < line.size(); ++at) {
        result.push_back(line);
        result.back()[at] = static_cast<char>(result.back()[at] ^ 0x20);
        result.push_back(line.substr(0, at));
        result.push_back(line.substr(at + 1));
    }
    return result;
}

}  // namespace

TEST(LineComparison, TheLineOfANumberTakesAnotherNumber) {
    for (const std::string name : {"", "Port", "a\"b", "=dword:"}) {
        std::string line = composeDwordLine(name, 0x1F90);
        renumberDwordLine(line.data(), line.size(), 0xABCDEF01);
        EXPECT_EQ(line, composeDwordLine(name, 0xABCDEF01));
    }
}

TEST(LineComparison, TellsTheLineOfANumberFromEveryOther) {
    for (const std::string name : {"", "Port", "a\"b", "=dword:"}) {
        for (const std::uint32_t number : {0u, 0x1F90u, 0xABCDEF01u, 0xFFFFFFFFu}) {
            const std::string line = composeDwordLine(name, number);
            EXPECT_TRUE(isDwordLine(line, name, number)) << line;
            EXPECT_FALSE(isDwordLine(line, name, number ^ 1)) << line;
            EXPECT_FALSE(isDwordLine(line, name + "x", number)) << line;
            for (const std::string& other : neighbours(line)) {
                EXPECT_EQ(isDwordLine(other, name, number), other == line) << other;
            }
        }
    }
}

TEST(LineComparison, TellsTheLineOfATextFromEveryOther) {
    for (const std::string name : {"", "Name", "NAME", "a:b"}) {
        for (const std::string text : {"", "x", " a\"b:c=d ", "one\r\ntwo"}) {
            const std::string line = composeStringLine(name, text);
            EXPECT_TRUE(isStringLine(line, name, text)) << line;
            EXPECT_FALSE(isStringLine(line, name, text + "x")) << line;
            for (const std::string& other : neighbours(line)) {
                EXPECT_EQ(isStringLine(other, name, text), other == line) << other;
            }
        }
    }
}

TEST(LineComparison, TellsTheLineOfBytesFromEveryOther) {
    std::vector<unsigned char> bytes;
    for (const std::size_t size : {0u, 1u, 2u, 31u, 32u, 33u, 64u, 100u}) {
        while (bytes.size() < size) {
            bytes.push_back(static_cast<unsigned char>(bytes.size() * 37 + 0x9A));
        }
        const std::string line = composeBinaryLine("Mac", bytes.data(), size);
        EXPECT_TRUE(isBinaryLine(line, "Mac", bytes.data(), size)) << line;
        EXPECT_FALSE(isBinaryLine(line, "mac", bytes.data(), size)) << line;
        for (const std::string& other : neighbours(line)) {
            EXPECT_EQ(isBinaryLine(other, "Mac", bytes.data(), size), other == line) << other;
        }
    }
}

TEST(LineComparison, NoLineIsTheLineOfMoreBytesThanATextCanHold) {
    const unsigned char byte = 0xAB;
    EXPECT_FALSE(isBinaryLine("\"a\"=binary:AB", "a", &byte, ~std::size_t{0}));
    EXPECT_FALSE(isBinaryLine("\"a\"=binary:AB", "a", &byte, ~std::size_t{0} / 2 + 1));
    // They are not even looked at.
    EXPECT_FALSE(isBinaryLine("\"a\"=binary:AB", "a", nullptr, ~std::size_t{0}));
}

TEST(LineComparison, ComparesAsItComposes) {
    std::mt19937 random(4);
    for (int i = 0; i < 100000; ++i) {
        const std::string line = "\"" + randomText(random, "aA\"=:", 3) +
                                 "\"=" + (random() % 2 ? "string:" : "binary:") +
                                 randomText(random, "0A\"=:", 4);
        const std::string name = randomText(random, "aA\"=:", 3);
        const std::string data = randomText(random, "0A\"\n:", 2);
        const auto* const bytes = reinterpret_cast<const unsigned char*>(data.data());
        ASSERT_EQ(isStringLine(line, name, data), line == composeStringLine(name, data)) << line;
        ASSERT_EQ(isBinaryLine(line, name, bytes, data.size()),
                  line == composeBinaryLine(name, bytes, data.size()))
            << line;
    }
}
