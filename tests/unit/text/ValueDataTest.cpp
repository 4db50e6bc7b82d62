#include "RegLib/text/ValueData.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "RegLib/text/LineFormat.h"

using namespace VQRegLib;

namespace {

constexpr unsigned char kUntouched = 0xEE;

// A buffer of a caller, with a guard behind its capacity.
struct Answer {
    explicit Answer(unsigned long capacity) : bytes(capacity + 2, kUntouched), size(capacity) {}

    Answer& give(std::string_view line, CRegLib::eDataType type) {
        code = giveData(line, type, {bytes.data(), size, &size});
        return *this;
    }
    std::string text(unsigned long count) const {
        return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
    }
    // No byte from `index` on has been written.
    bool isUntouchedFrom(unsigned long index) const {
        for (std::size_t at = index; at < bytes.size(); ++at) {
            if (bytes[at] != kUntouched) {
                return false;
            }
        }
        return true;
    }

    std::vector<unsigned char> bytes;
    unsigned long size;
    int code = 1;
};

std::uint32_t numberOf(std::string_view data) {
    Answer answer(4);
    answer.give("\"n\"=dword:" + std::string(data), CRegLib::eDword);
    EXPECT_EQ(answer.code, REGLIB_OK);
    EXPECT_EQ(answer.size, 4u);
    std::uint32_t number = 0;
    std::memcpy(&number, answer.bytes.data(), sizeof number);
    return number;
}

}  // namespace

TEST(ValueData, NumbersComeInTheOrderOfTheMachine) {
    EXPECT_EQ(numberOf("0000001F"), 31u);
    EXPECT_EQ(numberOf("FFFFFFFF"), 0xFFFFFFFFu);
    EXPECT_EQ(numberOf("123456789"), 0x12345678u);
    EXPECT_EQ(numberOf(" 1f"), 31u);
    EXPECT_EQ(numberOf("zz"), 0u);
    EXPECT_EQ(numberOf(""), 0u);
}

TEST(ValueData, ANumberNeedsFourBytes) {
    Answer answer(3);
    answer.give("\"n\"=dword:0000001F", CRegLib::eDword);
    EXPECT_EQ(answer.code, REGLIB_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(answer.size, 4u);
    EXPECT_TRUE(answer.isUntouchedFrom(0));
}

TEST(ValueData, ATextComesWithItsNul) {
    Answer answer(4);
    answer.give("\"s\"=string:abc", CRegLib::eString);
    EXPECT_EQ(answer.code, REGLIB_OK);
    EXPECT_EQ(answer.size, 4u);
    EXPECT_EQ(answer.text(4), std::string("abc\0", 4));
    EXPECT_TRUE(answer.isUntouchedFrom(4));
    Answer empty(1);
    empty.give("\"s\"=string:", CRegLib::eString);
    EXPECT_EQ(empty.code, REGLIB_OK);
    EXPECT_EQ(empty.text(1), std::string(1, '\0'));
}

TEST(ValueData, ATextKeepsItsBlanksQuotesAndColons) {
    Answer answer(20);
    answer.give("\"s\"=string: a\"b:c ", CRegLib::eString);
    EXPECT_EQ(answer.size, 8u);
    EXPECT_STREQ(answer.text(8).c_str(), " a\"b:c ");
}

TEST(ValueData, ATextThatDoesNotFitTellsItsSize) {
    Answer answer(3);
    answer.give("\"s\"=string:abc", CRegLib::eString);
    EXPECT_EQ(answer.code, REGLIB_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(answer.size, 4u);
    EXPECT_TRUE(answer.isUntouchedFrom(0));
}

TEST(ValueData, BytesAreMadeOfPairsOfDigits) {
    Answer answer(3);
    answer.give("\"b\"=binary:0010fF", CRegLib::eBinary);
    EXPECT_EQ(answer.code, REGLIB_OK);
    EXPECT_EQ(answer.size, 3u);
    EXPECT_EQ(answer.text(3), std::string("\0\x10\xFF", 3));
    EXPECT_TRUE(answer.isUntouchedFrom(3));
}

TEST(ValueData, BytesThatDoNotFitTellTheirSize) {
    Answer answer(2);
    answer.give("\"b\"=binary:0010FF", CRegLib::eBinary);
    EXPECT_EQ(answer.code, REGLIB_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(answer.size, 3u);
    EXPECT_TRUE(answer.isUntouchedFrom(0));
}

TEST(ValueData, TheLastOfAnOddNumberOfDigitsIsAByteThatDoesNotCount) {
    Answer roomy(3);
    roomy.give("\"b\"=binary:0102F", CRegLib::eBinary);
    EXPECT_EQ(roomy.code, REGLIB_OK);
    EXPECT_EQ(roomy.size, 2u);
    EXPECT_EQ(roomy.text(3), "\x01\x02\x0F");
    Answer tight(2);
    tight.give("\"b\"=binary:0102F", CRegLib::eBinary);
    EXPECT_EQ(tight.code, REGLIB_OK);
    EXPECT_EQ(tight.size, 2u);
    EXPECT_TRUE(tight.isUntouchedFrom(2));
}

TEST(ValueData, WithoutABufferOnlyTheSizeIsTold) {
    for (const auto& [line, type, wanted] : {std::tuple("\"b\"=binary:0102", CRegLib::eBinary, 2ul),
                                             std::tuple("\"s\"=string:ab", CRegLib::eString, 3ul),
                                             std::tuple("\"n\"=dword:1", CRegLib::eDword, 4ul)}) {
        unsigned long size = 77;
        EXPECT_EQ(giveData(line, type, {nullptr, 0, &size}), REGLIB_E_BUFFER_TOO_SMALL) << line;
        EXPECT_EQ(size, wanted) << line;
    }
    unsigned long size = 77;
    EXPECT_EQ(giveData("\"b\"=binary:", CRegLib::eBinary, {nullptr, 0, &size}), REGLIB_OK);
    EXPECT_EQ(size, 0u);
}

// Who asks for a size need not say that there is no room.
TEST(ValueData, WithoutAPlaceForTheDataTheRoomDoesNotMatter) {
    for (const unsigned long room : {4ul, 100ul}) {
        unsigned long size = 77;
        EXPECT_EQ(giveNumber(7, {nullptr, room, &size}), REGLIB_OK);
        EXPECT_EQ(size, 4ul);
        EXPECT_EQ(giveText("abc", {nullptr, room, &size}), REGLIB_OK);
        EXPECT_EQ(size, 4ul);
    }
}

TEST(ValueData, TheDataBeginsBehindTheFirstColonEvenInAName) {
    Answer answer(40);
    answer.give("\"a:b\"=string:c", CRegLib::eString);
    EXPECT_STREQ(answer.text(answer.size).c_str(), "b\"=string:c");
}

TEST(ValueData, ALineWithoutDataOrTypeHasNone) {
    Answer answer(8);
    EXPECT_EQ(answer.give("\"a\"string:b", CRegLib::eString).code, REGLIB_E_FAIL);
    EXPECT_EQ(answer.give("\"a\"=string", CRegLib::eString).code, REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(answer.size, 8u);
    EXPECT_EQ(answer.give("\"a\"=string:b", CRegLib::eNone).code, REGLIB_E_BAD_TYPE);
    EXPECT_EQ(answer.size, 0u);
    EXPECT_TRUE(answer.isUntouchedFrom(0));
}

TEST(ValueData, WhatIsComposedComesBack) {
    std::mt19937 random(8);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes(random() % 200, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
        Answer binary(200);
        binary.give(composeBinaryLine("n", data, bytes.size()), CRegLib::eBinary);
        ASSERT_EQ(binary.size, bytes.size());
        ASSERT_EQ(binary.text(binary.size), bytes);
        Answer text(201);
        text.give(composeStringLine("n", bytes), CRegLib::eString);
        ASSERT_EQ(text.size, bytes.size() + 1);
        ASSERT_EQ(text.text(bytes.size()), bytes);
        const auto number = static_cast<std::uint32_t>(random());
        Answer dword(4);
        dword.give(composeDwordLine("n", number), CRegLib::eDword);
        ASSERT_EQ(std::memcmp(dword.bytes.data(), &number, sizeof number), 0);
    }
}

TEST(ValueData, BytesAsATextAreThoseOfABuffer) {
    EXPECT_EQ(bytesOfDigits("00fF1"), std::string("\0\xFF", 2));
    EXPECT_EQ(bytesOfDigits("1"), "");
    EXPECT_EQ(bytesOfDigits(""), "");
    EXPECT_EQ(bytesOfDigits("zz0x"), std::string(2, '\0'));
}
