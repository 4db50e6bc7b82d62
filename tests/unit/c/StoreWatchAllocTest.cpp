// Changes of VQRegStore.h with the n-th allocation failing, for every n.
#include <VQRegStore.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "support/FailingAllocation.h"
#include "support/TempStore.h"
#include "support/Wait.h"

namespace {

// Too long for a string to have it in itself.
const std::string kName(40, 'n');

}  // namespace

TEST(StoreChangesWithoutMemory, AreGivenOutOnceThereIsSome) {
    bool hasFailed = true;
    long n = 0;
    for (; hasFailed && n < 500; ++n) {
        const vqtest::TempStore file;
        const vqreg::Store store(file.path());
        vqreg::Changes changes(store, "");
        store.root().set(kName, 1);
        std::optional<vqreg::Change> change;
        {
            vqtest::FailingAllocation one(n);
            try {
                std::error_code error;
                change = changes.next(error);
            } catch (const std::bad_alloc&) {
                change.reset();
            }
            hasFailed = one.hasFailed();
        }
        change = change ? change : changes.next();
        ASSERT_TRUE(change) << n;
        EXPECT_EQ(change->name, kName) << n;
        EXPECT_FALSE(changes.next()) << n;
    }
    EXPECT_GT(n, 1) << "nothing is allocated here";
}

// What fails is on the thread of the watch, which a first change keeps in its function until then.
TEST(StoreWatchWithoutMemory, EndsNoProgramAndTellsTheChangeLater) {
    bool hasFailed = true;
    long n = 0;
    for (; hasFailed && n < 500; ++n) {
        const vqtest::TempStore file;
        const vqreg::Store store(file.path());
        vqreg::Key root = store.root();
        std::atomic<bool> isIn{false};
        std::atomic<bool> mayGo{false};
        std::atomic<int> told{0};
        std::atomic<int> troubles{0};
        const auto note = [&](const vqreg::Change& change) {
            told += change.name == kName ? 1 : 0;
            isIn = true;
            isIn.notify_all();
            mayGo.wait(false);
        };
        const vqreg::Watch watch(store, "", note, [&](std::error_code error) {
            troubles += error == vqreg::errc::fail ? 1 : 0;
        });
        root.set("First", 1);
        isIn.wait(false);
        root.set(kName, 1);
        {
            vqtest::FailingAllocation one(n);
            mayGo = true;
            mayGo.notify_all();
            EXPECT_TRUE(vqtest::waitUntil([&] { return told == 1 || troubles == 1; })) << n;
            hasFailed = one.hasFailed();
        }
        if (n == 0) {
            EXPECT_TRUE(vqtest::waitUntil([&] { return told == 1; }));
        }
    }
    EXPECT_GT(n, 1) << "nothing is allocated here";
}
