// Opening a store through the C interface with the n-th allocation failing, for every n. The first one of a
// process also makes what all stores share.
#include <gtest/gtest.h>
#include <vqreg.h>

#include <string>

#include "support/FailingAllocation.h"
#include "support/TempStore.h"

TEST(COpeningWithoutMemory, GivesNoStoreAndSaysSo) {
    const vqtest::TempStore file;
    const std::string path = file.path();
    bool hasFailed = true;
    int refused = 0;
    for (long n = 0; hasFailed && n < 500; ++n) {
        int result = 1;
        vqreg_store* store = nullptr;
        {
            vqtest::FailingAllocation one(n);
            store = vqreg_open(path.c_str(), nullptr, &result);
            hasFailed = one.hasFailed();
        }
        if (store) {
            EXPECT_EQ(result, VQREG_OK) << n;
        } else {
            EXPECT_TRUE(result == VQREG_E_FAIL || result == VQREG_E_NOT_INITIALIZED) << n;
            ++refused;
        }
        vqreg_close(store);
    }
    EXPECT_GT(refused, 0);
    EXPECT_FALSE(hasFailed);
    vqreg_store* const store = vqreg_open(path.c_str(), nullptr, nullptr);
    EXPECT_EQ(vqreg_set_dword(store, "Key", "V", 1), VQREG_OK);
    vqreg_close(store);
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/Key]\n\"V\"=dword:00000001\n");
}
