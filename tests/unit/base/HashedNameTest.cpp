#include "RegLib/base/HashedName.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using VQRegLib::CHashedName;

TEST(HashedName, KeepsEveryByteOfTheNameAsItIs) {
    const std::string name("Na\0Me", 5);
    EXPECT_EQ(CHashedName(name).text(), name);
    EXPECT_EQ(CHashedName(name).text().data(), name.data()) << "no copy";
    EXPECT_EQ(CHashedName(std::string_view("ABCDEF").substr(2, 2)).text(), "CD");
    EXPECT_EQ(CHashedName("Name").text(), "Name");
    EXPECT_EQ(CHashedName(std::string_view()).text(), "");
}

TEST(HashedName, HasNoLimit) {
    for (const std::size_t size : {1u, 255u, 256u, 257u, 512u, 100000u}) {
        std::string name(size, 'X');
        name.back() = 'Y';
        std::string other(size, 'x');
        EXPECT_NE(CHashedName(name).hash(), CHashedName(other).hash()) << size;
        other.back() = 'y';
        EXPECT_EQ(CHashedName(name).hash(), CHashedName(other).hash()) << size;
    }
}

TEST(HashedName, FoldsLettersOfAsciiAndNoOtherByte) {
    EXPECT_EQ(CHashedName("AZaz09").hash(), CHashedName("azAZ09").hash());
    EXPECT_NE(CHashedName("[").hash(), CHashedName("{").hash());
    EXPECT_NE(CHashedName("@").hash(), CHashedName("`").hash());
    EXPECT_NE(CHashedName("\xC4").hash(), CHashedName("\xE4").hash());
}

// As a chain of words would that are multiplied one after the other, whatever it begins with.
TEST(HashedName, NoWordMakesUpForAChangeInTheOneBefore) {
    for (const std::size_t size : {16u, 32u, 48u}) {
        const std::string name(size, 'n');
        std::string other = name;
        other[size - 16 + 7] ^= '\x80';
        other[size - 16 + 8 + 7] ^= '\x80';
        other[size - 16 + 8 + 4] ^= '\x04';
        EXPECT_NE(CHashedName(name).hash(), CHashedName(other).hash()) << size;
    }
}

TEST(HashedName, IsTheSameAsItsOtherSpellingsAndAsNoOtherName) {
    for (std::size_t size = 0; size <= 50; ++size) {
        const std::string name(size, 'N');
        EXPECT_TRUE(CHashedName(name).isSame(name));
        EXPECT_TRUE(CHashedName(name).isSame(std::string(size, 'n')));
        EXPECT_FALSE(CHashedName(name).isSame(name + 'n'));
        for (std::size_t at = 0; at < size; ++at) {
            std::string other(size, 'n');
            other[at] = 'm';
            EXPECT_FALSE(CHashedName(name).isSame(other)) << size << " " << at;
        }
    }
}

TEST(HashedName, EqualsAShortNameOfTheSameSpellingOnly) {
    for (std::size_t size = 0; size <= 16; ++size) {
        const std::string name(size, 'N');
        EXPECT_TRUE(CHashedName(name).isEqual(std::string(size, 'N')));
        EXPECT_FALSE(CHashedName(name).isEqual(name + 'N'));
        for (std::size_t at = 0; at < size; ++at) {
            std::string other = name;
            other[at] = 'n';
            EXPECT_FALSE(CHashedName(name).isEqual(other)) << size << " " << at;
        }
    }
}
