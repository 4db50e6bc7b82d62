#include "portable/Sample.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

TEST(Sample, TellsWhatIsLarger) {
    EXPECT_EQ(std::getenv("SAMPLE_IS_DISTURBED"), nullptr);
    EXPECT_TRUE(isLarger(2, 1));
    EXPECT_FALSE(isLarger(1, 1));
    EXPECT_FALSE(isLarger(1, 2));
}

TEST(Sample, Counts) {
    EXPECT_EQ(countUpTo(3), 3);
    EXPECT_EQ(countUpTo(0), 0);
}

TEST(Sample, HasTheSignalsOfAnyProgram) {
    EXPECT_EQ(std::signal(SIGHUP, SIG_DFL), SIG_DFL);
}
