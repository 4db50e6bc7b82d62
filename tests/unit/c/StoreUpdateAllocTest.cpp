// Updates of VQRegStore.h with the n-th allocation failing, for every n.
#include <VQRegStore.h>
#include <gtest/gtest.h>

#include <string>

#include "support/FailingAllocation.h"
#include "support/TempStore.h"

TEST(StoreUpdateWithoutMemory, HasChangedNothingAndIsCommittedAgain) {
    const std::string before = "[Velquist]\n[Velquist/Key]\n";
    bool hasFailed = true;
    long n = 0;
    for (; hasFailed && n < 500; ++n) {
        const vqtest::TempStore file;
        file.write(before);
        const vqreg::Store store(file.path());
        vqreg::Update update(store);
        update.set("New/Path", "V", 1);
        update.create("Other/Path");
        bool isCommitted = false;
        {
            vqtest::FailingAllocation one(n);
            try {
                std::error_code error;
                update.commit(error);
                isCommitted = !error;
            } catch (const std::bad_alloc&) {
                isCommitted = false;
            }
            hasFailed = one.hasFailed();
        }
        if (!isCommitted) {
            EXPECT_EQ(file.read(), before) << n;
            EXPECT_FALSE(update.empty()) << n;
            update.commit();
        }
        EXPECT_EQ(file.read(), before +
                                   "[Velquist/New]\n[Velquist/New/Path]\n\"V\"=dword:00000001\n" +
                                   "[Velquist/Other]\n[Velquist/Other/Path]\n")
            << n;
    }
    EXPECT_GT(n, 1) << "nothing is allocated here";
}
