#include "RegLib/base/FoldedName.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using VQRegLib::CFoldedName;

TEST(FoldedName, IsTheNameInLowerCase) {
    EXPECT_EQ(CFoldedName("Network").view(), "network");
    EXPECT_EQ(CFoldedName("already lower 1[]{}").view(), "already lower 1[]{}");
    EXPECT_EQ(CFoldedName("\xC3\x84RGER@[`{").view(), "\xC3\x84rger@[`{");
    EXPECT_EQ(CFoldedName("").view(), "");
    EXPECT_EQ(CFoldedName(std::string_view()).view(), "");
}

TEST(FoldedName, KeepsEveryByteOfAView) {
    const std::string name("A\0B", 3);
    EXPECT_EQ(CFoldedName(name).view(), std::string_view("a\0b", 3));
    EXPECT_EQ(CFoldedName(std::string_view("ABCDEF").substr(2, 2)).view(), "cd");
}

TEST(FoldedName, HasNoLimit) {
    for (const std::size_t size : {1u, 255u, 256u, 257u, 512u, 100000u}) {
        std::string name(size, 'X');
        name.back() = 'Y';
        std::string expected(size, 'x');
        expected.back() = 'y';
        EXPECT_EQ(CFoldedName(name).view(), expected) << size;
    }
}

TEST(FoldedName, LeavesTheNameItselfAlone) {
    const std::string name = "Name";
    const CFoldedName folded(name);
    EXPECT_EQ(name, "Name");
    EXPECT_NE(folded.view().data(), name.data());
}
