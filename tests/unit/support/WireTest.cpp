#include "support/Wire.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using vqtest::Fields;

TEST(Wire, FieldsSurviveTheWay) {
    const Fields fields = {"", "a\tb", "100%", "%41", "x\r\ny", "\x80\xff", "", " "};
    const std::string line = vqtest::joinFields(fields);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(vqtest::splitFields(line), fields);
}

TEST(Wire, EscapesOnlyWhatIsNeeded) {
    EXPECT_EQ(vqtest::joinFields({"set", "A/B\\C", "50%\t"}), "set\tA/B\\C\t50%25%09");
}

TEST(Wire, AnEmptyLineIsOneEmptyField) {
    EXPECT_EQ(vqtest::splitFields(""), Fields{""});
}

TEST(Wire, RefusesBrokenEscapes) {
    EXPECT_THROW(vqtest::splitFields("%4"), std::invalid_argument);
    EXPECT_THROW(vqtest::splitFields("%"), std::invalid_argument);
    EXPECT_THROW(vqtest::splitFields("%4G"), std::invalid_argument);
}

TEST(Wire, ConvertsBytes) {
    const std::string bytes("\0\x7f\x80\xff", 4);
    EXPECT_EQ(vqtest::toHex(bytes), "007F80FF");
    EXPECT_EQ(vqtest::fromHex("007f80FF"), bytes);
    EXPECT_EQ(vqtest::fromHex(""), "");
    EXPECT_THROW(vqtest::fromHex("123"), std::invalid_argument);
}

TEST(Wire, ConvertsResultCodes) {
    const int keyNotFound = static_cast<int>(0xC1250FA8u);
    EXPECT_EQ(vqtest::codeToText(0), "00000000");
    EXPECT_EQ(vqtest::codeToText(keyNotFound), "C1250FA8");
    EXPECT_EQ(vqtest::codeFromText("C1250FA8"), keyNotFound);
    EXPECT_EQ(vqtest::codeFromText("FFFFFFFF"), vqtest::kBadOrder);
    EXPECT_THROW(vqtest::codeFromText("0"), std::invalid_argument);
    EXPECT_THROW(vqtest::codeFromText("0000000x"), std::invalid_argument);
}
