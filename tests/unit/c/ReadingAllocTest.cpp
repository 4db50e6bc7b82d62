// Values of a file that has changed, read through the C interface with the n-th allocation failing, for every
// n.
#include <gtest/gtest.h>
#include <vqreg.h>

#include <string>

#include "support/FailingAllocation.h"
#include "support/TempStore.h"

namespace {

// Longer than what a string holds in itself.
const std::string kText(40, 't');

std::string textOf(const std::string& value) {
    return "[Velquist]\n[Velquist/Key]\n\"V\"=string:" + value + "\n";
}

}  // namespace

// The session below says that it has succeeded, and gives no type.
TEST(CReadingWithoutMemory, IsNoSuccessWithoutAValue) {
    bool hasFailed = true;
    int refused = 0;
    for (long n = 0; hasFailed && n < 500; ++n) {
        const vqtest::TempStore file;
        file.write(textOf("old"));
        vqreg_store* const store = vqreg_open(file.path().c_str(), nullptr, nullptr);
        ASSERT_EQ(vqreg_has_key(store, "Key"), VQREG_OK) << n;
        file.write(textOf(kText));
        ASSERT_EQ(vqreg_reload(store), VQREG_OK) << n;
        char text[64] = "kept";
        size_t size = sizeof text;
        int result = VQREG_OK;
        {
            vqtest::FailingAllocation one(n);
            result = vqreg_get_string(store, "Key", "V", text, &size);
            hasFailed = one.hasFailed();
        }
        if (result == VQREG_OK) {
            EXPECT_EQ(text, kText) << n;
        } else {
            EXPECT_EQ(result, VQREG_E_FAIL) << n;
            EXPECT_STREQ(text, "kept") << n;
            EXPECT_EQ(size, sizeof text) << n;
            ++refused;
        }
        vqreg_close(store);
    }
    EXPECT_GT(refused, 0);
    EXPECT_FALSE(hasFailed);
}
