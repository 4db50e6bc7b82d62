// A store of its own, used through the C interface.
#ifndef VQTEST_C_STORE_FIXTURE_H
#define VQTEST_C_STORE_FIXTURE_H

#include <gtest/gtest.h>
#include <vqreg.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/TempStore.h"

namespace vqtest {

class CStoreTest : public testing::Test {
protected:
    void SetUp() override {
        store = open();
        ASSERT_NE(store, nullptr);
    }
    void TearDown() override { vqreg_close(store); }

    vqreg_store* open() const { return vqreg_open(file.path().c_str(), nullptr, nullptr); }

    std::optional<std::uint32_t> number(const char* path, const char* name) const {
        std::uint32_t found = 0;
        return vqreg_get_dword(store, path, name, &found) == VQREG_OK ? std::optional(found)
                                                                      : std::nullopt;
    }

    std::optional<std::string> text(const char* path, const char* name) const {
        char buffer[4096];
        size_t size = sizeof buffer;
        if (vqreg_get_string(store, path, name, buffer, &size) != VQREG_OK) {
            return std::nullopt;
        }
        EXPECT_EQ(size, std::strlen(buffer) + 1);
        return buffer;
    }

    TempStore file;
    vqreg_store* store = nullptr;
};

}  // namespace vqtest

#endif  // VQTEST_C_STORE_FIXTURE_H
