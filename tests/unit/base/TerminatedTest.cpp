// Texts for interfaces that want a zero at the end.
#include <gtest/gtest.h>

#include <string>

#include "RegLib/base/Terminated.h"

using VQRegLib::CTerminated;

TEST(Terminated, EndsTextsOfEverySize) {
    for (const std::size_t size : {0u, 1u, 127u, 128u, 129u, 5000u}) {
        const std::string text(size, 'x');
        const std::string longer = text + "behind it";
        const CTerminated terminated(std::string_view(longer).substr(0, size));
        EXPECT_EQ(terminated.c_str(), text);
    }
}
