// The session lock when an exception passes.
#include <gtest/gtest.h>

#include "RegLib/instance/Directory.h"
#include "RegLib/store/Store.h"
#include "VQRegLib.h"
#include "support/FailingCopies.h"
#include "support/TempStore.h"
#include "support/Threads.h"

using namespace VQRegLib;
using vqtest::CopiesLeft;
using vqtest::isFree;

TEST(SessionLockShortage, StaysEnteredWhenAnExceptionPasses) {
    const vqtest::TempStore file;
    CRegLib session(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CRegLibImpl& store = *get_reglibImplDirectory()->acquireRegLibImpl(
        file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey key;
    {
        const CopiesLeft none(0);
        EXPECT_THROW(session.VQRegCreateKey(nullptr, "a", key, 1), VQException);
    }
    EXPECT_FALSE(isFree(store.m_critSec)) << "what was interrupted is half done";
    EXPECT_EQ(session.VQRegCreateKey(nullptr, "a", key, 1), REGLIB_OK) << "its thread goes on";
    EXPECT_FALSE(isFree(store.m_critSec));
    store.m_critSec.leave(__LINE__);
    EXPECT_TRUE(isFree(store.m_critSec)) << "it was entered once";
    get_reglibImplDirectory()->releaseRegLibImpl(&store);
}
