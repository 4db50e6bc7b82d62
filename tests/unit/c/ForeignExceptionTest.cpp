// Exceptions that are not the library's own, as those of a replaced allocation may be.
#include <gtest/gtest.h>
#include <vqreg.h>

#include "RegLib/instance/Directory.h"
#include "RegLib/store/Store.h"
#include "support/FileOpsFake.h"
#include "support/TempStore.h"
#include "support/Threads.h"

using namespace VQRegLib;

// The session below leaves its lock entered: what the exception has interrupted may be half done.
TEST(CForeignException, DoesNotComeOutOfTheCallAndKeepsOthersOut) {
    const vqtest::TempStore file;
    vqreg_store* const store = vqreg_open(file.path().c_str(), nullptr, nullptr);
    ASSERT_EQ(vqreg_create_key(store, "Key"), VQREG_OK);
    CRegLibImpl& session = *get_reglibImplDirectory()->acquireRegLibImpl(
        file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    ASSERT_EQ(vqreg_reload(store), VQREG_OK);
    vqreg_key* key = nullptr;
    {
        vqtest::FileOpsFake files;
        files.throwOther(vqtest::FileCall::eOpenForReading);
        EXPECT_EQ(vqreg_open_key(store, "Key", 0, &key), VQREG_E_FAIL);
        EXPECT_EQ(key, nullptr);
    }
    EXPECT_FALSE(vqtest::isFree(session.m_critSec));
    EXPECT_EQ(vqreg_open_key(store, "Key", 0, &key), VQREG_OK) << "its thread goes on";
    vqreg_close_key(key);
    session.m_critSec.leave(__LINE__);
    EXPECT_TRUE(vqtest::isFree(session.m_critSec)) << "it was entered once";
    get_reglibImplDirectory()->releaseRegLibImpl(&session);
    vqreg_close(store);
}
