// A store of its own, used through VQRegStore.h. These tests are compiled as C++17.
#ifndef VQTEST_CXX_STORE_FIXTURE_H
#define VQTEST_CXX_STORE_FIXTURE_H

#include <VQRegStore.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/Wait.h"

namespace vqtest {

using Texts = std::vector<std::string>;

class CxxStoreTest : public testing::Test {
protected:
    vqreg::Store open() const { return vqreg::Store(file.path()); }

    /// The code, the path and the name of what a call throws; 0 when it throws nothing.
    template <typename Call>
    static vqreg::errc thrown(Call call) {
        try {
            call();
        } catch (const vqreg::Error& error) {
            EXPECT_EQ(error.what(), error.text());
            EXPECT_EQ(&error.code().category(), &vqreg::error_category());
            return static_cast<vqreg::errc>(error.code().value());
        }
        return vqreg::errc{};
    }

    template <typename Call>
    static std::string textOf(Call call) {
        try {
            call();
        } catch (const vqreg::Error& error) {
            return error.text();
        }
        return "nothing was thrown";
    }

    /// Puts another file in the place of the store's, so that nobody sees half of it.
    void replaceFile(const std::string& text) const {
        const TempStore next(file.directory());
        next.write(text);
        EXPECT_EQ(::rename(next.path().c_str(), file.path().c_str()), 0);
    }

    /// Nobody can read or write the file for a while.
    void takeDirectoryAway() const { std::filesystem::rename(file.directory(), away()); }
    void bringDirectoryBack() const { std::filesystem::rename(away(), file.directory()); }

    static Texts namesOf(const std::vector<vqreg::Value>& values) {
        Texts names;
        for (const vqreg::Value& value : values) {
            names.push_back(value.name());
        }
        return names;
    }

    TempStore file;

private:
    std::string away() const { return file.directory() + ".away"; }
};

/// Runs a call as the user "nobody", in this process. False where that may not be.
template <typename Call>
bool callAsNobody(Call call) {
    constexpr uid_t kNobody = 65534;
    if (::geteuid() != 0 || ForkedChild([] { return ::seteuid(kNobody); }).wait() != 0) {
        return false;
    }
    EXPECT_EQ(::seteuid(kNobody), 0);
    call();
    EXPECT_EQ(::seteuid(0), 0);
    return true;
}

}  // namespace vqtest

#endif  // VQTEST_CXX_STORE_FIXTURE_H
