// Operations of destructors that run because an exception passes are as any others: the lock that they take
// they let go of, for the exception is not theirs.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "VQRegLib.h"
#include "support/Sessions.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using vqtest::numberOf;
using vqtest::setNumber;

namespace {

class Unwinding : public testing::Test {
protected:
    // Runs it in a destructor that an exception has called.
    template <typename Action>
    static void whileUnwinding(Action action) {
        class AtLeaving {
        public:
            explicit AtLeaving(Action& toDo) : m_action(toDo) {}
            ~AtLeaving() { m_action(); }
            AtLeaving(const AtLeaving&) = delete;
            AtLeaving& operator=(const AtLeaving&) = delete;

        private:
            Action& m_action;
        };
        try {
            const AtLeaving atLeaving(action);
            throw std::runtime_error("on its way");
        } catch (const std::runtime_error&) {
            // all is left
        }
    }

    vqtest::TempStore store;
    std::unique_ptr<CRegLib> session = vqtest::openSession(store.path());
};

}  // namespace

TEST_F(Unwinding, ASetChangesTheFileAndLeavesNoLock) {
    whileUnwinding([&] { EXPECT_EQ(setNumber(*session, "A", 1), REGLIB_OK); });
    EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000001\n");
    EXPECT_TRUE(store.isUnlocked());
}

TEST_F(Unwinding, AnUpdateEndsThere) {
    whileUnwinding([&] {
        CRegUpdate update(*session);
        EXPECT_EQ(setNumber(*session, "A", 1), REGLIB_OK);
    });
    EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000001\n");
    EXPECT_TRUE(store.isUnlocked());
}

TEST_F(Unwinding, AQueryThatMakesTheMissingFileLeavesNoLock) {
    ASSERT_EQ(setNumber(*session, "A", 1), REGLIB_OK);
    ASSERT_EQ(std::remove(store.path().c_str()), 0);
    ASSERT_EQ(session->VQRegReload(), REGLIB_OK);
    whileUnwinding([&] { EXPECT_EQ(numberOf(*session, "A"), 1); });
    EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000001\n");
    EXPECT_TRUE(store.isUnlocked());
}
