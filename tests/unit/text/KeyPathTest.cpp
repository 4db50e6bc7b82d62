#include "RegLib/text/KeyPath.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

using testing::ElementsAre;

namespace {

std::vector<std::string> namesOf(std::string_view path) {
    std::vector<std::string> names;
    VQRegLib::CKeyPath rest(path);
    for (std::string_view name; rest.next(name);) {
        names.emplace_back(name);
    }
    std::string_view more = "unchanged";
    EXPECT_FALSE(rest.next(more));
    EXPECT_EQ(more, "unchanged");
    return names;
}

}  // namespace

TEST(KeyPath, IsSeparatedBySlashesOfBothKinds) {
    EXPECT_THAT(namesOf("a"), ElementsAre("a"));
    EXPECT_THAT(namesOf("a/b"), ElementsAre("a", "b"));
    EXPECT_THAT(namesOf("a\\b"), ElementsAre("a", "b"));
    EXPECT_THAT(namesOf("One/two\\Three/4 5"), ElementsAre("One", "two", "Three", "4 5"));
}

TEST(KeyPath, EmptyNamesCount) {
    EXPECT_THAT(namesOf(""), ElementsAre(""));
    EXPECT_THAT(namesOf("/"), ElementsAre("", ""));
    EXPECT_THAT(namesOf("/a"), ElementsAre("", "a"));
    EXPECT_THAT(namesOf("a/"), ElementsAre("a", ""));
    EXPECT_THAT(namesOf("a\\/b"), ElementsAre("a", "", "b"));
    EXPECT_THAT(namesOf("//\\"), ElementsAre("", "", "", ""));
}

TEST(KeyPath, OtherBytesDoNotSeparate) {
    EXPECT_THAT(namesOf("a.b:c|d[e]"), ElementsAre("a.b:c|d[e]"));
    EXPECT_THAT(namesOf(std::string_view("a\0b", 3)), ElementsAre(std::string("a\0b", 3)));
}

TEST(KeyPath, ItsNamesAreViewsOfIt) {
    const std::string path = "ab/cd";
    VQRegLib::CKeyPath rest(path);
    std::string_view name;
    ASSERT_TRUE(rest.next(name));
    EXPECT_EQ(name.data(), path.data());
    ASSERT_TRUE(rest.next(name));
    EXPECT_EQ(name.data(), path.data() + 3);
}
