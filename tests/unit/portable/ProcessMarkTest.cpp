// Whether an object is of the process that looks at it.
#include "portable/ProcessMark.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "support/ForkedChild.h"

using VQRegLib::CProcessMark;
using vqtest::ForkedChild;

TEST(ProcessMark, IsOfTheProcessThatHasMadeIt) {
    const CProcessMark mark;
    EXPECT_TRUE(mark.isOfThisProcess());
    ForkedChild child([&] {
        const CProcessMark own;
        return !mark.isOfThisProcess() && own.isOfThisProcess() ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(mark.isOfThisProcess());
}

TEST(ProcessMark, IsNotOfAChildThatHasRunNoForkHandlers) {
    const CProcessMark mark;
    const pid_t child = ::_Fork();
    if (child == 0) {
        ::_exit(mark.isOfThisProcess() ? 1 : 0);
    }
    int status = -1;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_EQ(status, 0);
}
