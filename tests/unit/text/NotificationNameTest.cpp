#include "RegLib/text/NotificationName.h"

#include <gtest/gtest.h>

#include <string>

using VQRegLib::notificationSemaphoreName;

namespace {

const std::string kPrefix = "REG-CHANGENOTIF-SEM-BF96420F-BEA8-4a58-AA2E-FA2A7AE7F5A5-";

}  // namespace

TEST(NotificationName, HasAtLeastFourDigits) {
    EXPECT_EQ(notificationSemaphoreName(1), kPrefix + "0001");
    EXPECT_EQ(notificationSemaphoreName(731), kPrefix + "0731");
    EXPECT_EQ(notificationSemaphoreName(9999), kPrefix + "9999");
    EXPECT_EQ(notificationSemaphoreName(12345), kPrefix + "12345");
    EXPECT_EQ(notificationSemaphoreName(4194304), kPrefix + "4194304");
    EXPECT_EQ(notificationSemaphoreName(2147483647), kPrefix + "2147483647");
}
