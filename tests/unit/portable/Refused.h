// What tests of refused calls have in common.
#ifndef VQTEST_PORTABLE_REFUSED_H
#define VQTEST_PORTABLE_REFUSED_H

#include <gtest/gtest.h>

#include <ostream>
#include <string>

// The library calls functions of other names where a file of more than 2 GiB needs them.
#define SKIP_UNLESS_WRAPPED()                                     \
    if (sizeof(void*) != 8) {                                     \
        GTEST_SKIP() << "the library calls other functions here"; \
    }

namespace vqtest {

/// A call that is to fail, after so many that succeed.
struct Refused {
    const char* function;
    int error;
    int skip = 0;
};

inline void PrintTo(const Refused& refused, std::ostream* out) {
    *out << refused.function << "_" << refused.skip << "_" << refused.error;
}

inline std::string nameOfRefused(const testing::TestParamInfo<Refused>& info) {
    return testing::PrintToString(info.param);
}

}  // namespace vqtest

#endif  // VQTEST_PORTABLE_REFUSED_H
