#include <gtest/gtest.h>

#include "RegLib/c/Sample.h"

TEST(SampleOfLibrary, TellsWhatIsSmaller) {
    EXPECT_TRUE(isSmaller(1, 2));
    EXPECT_FALSE(isSmaller(1, 1));
}
