// Keys of VQRegStore.h when their names cannot be copied: others get into the store afterwards.
#include <VQRegStore.h>
#include <gtest/gtest.h>

#include "RegLib/instance/Directory.h"
#include "RegLib/store/Store.h"
#include "support/FailingCopies.h"
#include "support/TempStore.h"
#include "support/Threads.h"

using namespace VQRegLib;

TEST(StoreShortage, OfAKeyThatIsOpenedHoldsUpNobody) {
    const vqtest::TempStore file;
    vqreg::Store(file.path()).create("a/b").set("V", 1);
    CRegLibImpl* const session = get_reglibImplDirectory()->acquireRegLibImpl(
        file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    std::error_code error = vqreg::errc::fail;
    int copies = 0;
    for (; error && copies < 100; ++copies) {
        const vqreg::Store store(file.path());
        {
            const vqtest::CopiesLeft some(copies);
            const vqreg::Key key = store.key("a/b", error);
            EXPECT_EQ(static_cast<bool>(key), !error);
        }
        EXPECT_TRUE(!error || error == vqreg::errc::fail) << error.message();
        ASSERT_TRUE(vqtest::isFree(session->m_critSec)) << copies << " copies";
        EXPECT_EQ(store.key("a/b").get<int>("V"), 1) << "what is short is not remembered";
    }
    EXPECT_GT(copies, 1);
    EXPECT_FALSE(error);
    get_reglibImplDirectory()->releaseRegLibImpl(session);
}
