// Keys of the C interface when their names cannot be copied: the session below then leaves its lock entered
// (SessionLockAllocTest.cpp), and these calls do not.
#include <gtest/gtest.h>
#include <vqreg.h>

#include "RegLib/instance/Directory.h"
#include "RegLib/store/Store.h"
#include "support/FailingCopies.h"
#include "support/TempStore.h"
#include "support/Threads.h"

using namespace VQRegLib;

namespace {

class CKeyShortage : public testing::Test {
protected:
    ~CKeyShortage() override {
        get_reglibImplDirectory()->releaseRegLibImpl(m_session);
        vqreg_close(store);
    }

    /// The result without memory for more than so many copies. Everybody gets in afterwards.
    template <typename Call>
    int withCopies(int count, Call call) {
        int result = VQREG_OK;
        {
            const vqtest::CopiesLeft some(count);
            result = call();
        }
        EXPECT_TRUE(vqtest::isFree(m_session->m_critSec)) << count << " copies";
        return result;
    }

    /// Fails until there are enough, and succeeds then.
    template <typename Call>
    void expectFailuresThenSuccess(Call call) {
        int copies = 0;
        while (withCopies(copies, call) == VQREG_E_FAIL && copies < 100) {
            ++copies;
        }
        EXPECT_GT(copies, 0);
        EXPECT_LT(copies, 100);
    }

    const vqtest::TempStore file;
    vqreg_store* store = vqreg_open(file.path().c_str(), nullptr, nullptr);

private:
    CRegLibImpl* m_session = get_reglibImplDirectory()->acquireRegLibImpl(
        file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
};

}  // namespace

TEST_F(CKeyShortage, OfAKeyThatIsOpenedHoldsUpNobody) {
    ASSERT_EQ(vqreg_create_key(store, "a/b"), VQREG_OK);
    expectFailuresThenSuccess([this] {
        vqreg_key* key = nullptr;
        const int result = vqreg_open_key(store, "a/b", 0, &key);
        EXPECT_EQ(key != nullptr, result == VQREG_OK);
        vqreg_close_key(key);
        return result;
    });
}

TEST_F(CKeyShortage, OfAKeyThatIsMadeEndsItsUpdate) {
    expectFailuresThenSuccess([this] { return vqreg_create_key(store, "a/b"); });
    EXPECT_EQ(vqreg_end_update(store), VQREG_E_FAIL) << "there is none";
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/a]\n[Velquist/a/b]\n");
}

TEST_F(CKeyShortage, OfAKeyThatIsDeletedHoldsUpNobody) {
    ASSERT_EQ(vqreg_create_key(store, "a/b"), VQREG_OK);
    expectFailuresThenSuccess([this] { return vqreg_delete_key(store, "a/b"); });
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/a]\n");
}

TEST_F(CKeyShortage, OfAKeyBelowWhichAValueIsSetHoldsUpNobody) {
    expectFailuresThenSuccess([this] { return vqreg_set_dword(store, "a/b", "V", 1); });
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/a]\n[Velquist/a/b]\n\"V\"=dword:00000001\n");
}
