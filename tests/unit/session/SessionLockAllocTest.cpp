// The session lock when an exception passes, and how it is waited for in an update.
#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "RegLib/instance/Directory.h"
#include "RegLib/store/Store.h"
#include "VQRegLib.h"
#include "VQRegStore.h"
#include "support/FailingCopies.h"
#include "support/TempStore.h"
#include "support/Threads.h"

using namespace VQRegLib;
using vqtest::CopiesLeft;
using vqtest::isFree;

namespace {

thread_local int t_naps = 0;
thread_local long t_nanoseconds = 0;  // of all of them
thread_local std::function<void()> t_atNap;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __real_nanosleep(const timespec* time, timespec* left);
extern "C" int __wrap_nanosleep(const timespec* time, timespec* left);
extern "C" int __wrap_nanosleep(const timespec* time, timespec* left) {
    ++t_naps;
    t_nanoseconds += time->tv_sec * 1'000'000'000 + time->tv_nsec;
    if (t_atNap) {
        t_atNap();
    }
    return __real_nanosleep(time, left);
}
// NOLINTEND(bugprone-reserved-identifier)

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

namespace {

// This thread has an update on the file through one store, and another thread is inside a call of the other.
class SessionLockInAnUpdate : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(opened);
        ASSERT_EQ(session.VQRegCreateKeyVect(nullptr, "a/b/c", keys, names, 1), REGLIB_OK);
        handles = store.m_handles.size();
        holder = std::thread([this] {
            store.m_critSec.enter(__LINE__);
            isHeld = true;
            isHeld.notify_one();
            isOver.wait(false);
            store.m_critSec.leave(__LINE__);
        });
        isHeld.wait(false);
        ASSERT_EQ(writer.VQRegBeginUpdate(), REGLIB_OK);
        t_naps = 0;
        t_nanoseconds = 0;
    }
    void TearDown() override {
        t_atNap = nullptr;
        leave();
        EXPECT_EQ(writer.VQRegEndUpdate(), REGLIB_OK);
        if (!keys.empty()) {
            EXPECT_EQ(session.VQRegDestroyKeyVect(keys), REGLIB_OK);
        }
    }
    ~SessionLockInAnUpdate() override { get_reglibImplDirectory()->releaseRegLibImpl(&store); }

    // The other thread does.
    void leave() {
        isOver = true;
        isOver.notify_one();
        if (holder.joinable()) {
            holder.join();
        }
    }

    const vqtest::TempStore file;
    CRegLib session{file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
    const std::string otherName =
        file.directory() + "/./" + file.path().substr(file.directory().size() + 1);
    CRegLib writer{otherName.c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
    CRegLibImpl& store = *get_reglibImplDirectory()->acquireRegLibImpl(
        file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    const vqreg::Store opened{file.path()};
    std::vector<CRegKey*> keys;
    std::vector<std::string> names;
    std::size_t handles = 0;
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isOver{false};
    std::thread holder;
};

}  // namespace

// Its holder may be waiting for the update, so the wait has an end.
TEST_F(SessionLockInAnUpdate, IsAskedForWithNapsAndThenGivenUp) {
    if (sizeof(void*) != 8) {
        GTEST_SKIP() << "the library calls other functions here";
    }
    EXPECT_EQ(session.VQRegReload(), REGLIB_E_FAIL);
    EXPECT_EQ(t_naps, 200);
    EXPECT_EQ(t_nanoseconds, 200'000'000);
}

TEST_F(SessionLockInAnUpdate, IsNotWaitedForByKeysWhichGoWithTheNextOnes) {
    EXPECT_EQ(session.VQRegDestroyKeyVect(keys), REGLIB_OK);
    EXPECT_EQ(t_naps, 0);
    EXPECT_TRUE(keys.empty());
    EXPECT_EQ(store.m_handles.size(), handles);
    leave();
    EXPECT_EQ(session.VQRegDestroyKeyVect(keys), REGLIB_OK);
    EXPECT_EQ(store.m_handles.size(), handles - 3);
}

// Who looks for leaks finds none.
TEST_F(SessionLockInAnUpdate, IsNotWaitedForByKeysWhichGoWithTheStore) {
    EXPECT_EQ(session.VQRegDestroyKeyVect(keys), REGLIB_OK);
}

// It is asked for twice to see whether the root key is there, for its handle, and to look at it.
TEST_F(SessionLockInAnUpdate, ThatCannotBeHadLeavesNoRootKeyWithoutAHandle) {
    if (sizeof(void*) != 8) {
        GTEST_SKIP() << "the library calls other functions here";
    }
    t_atNap = [this] {
        if (t_naps == 601) {
            leave();
        }
    };
    std::error_code error;
    EXPECT_FALSE(opened.root(error));
    EXPECT_EQ(error, vqreg::errc::fail);
    EXPECT_EQ(t_naps, 600);
    leave();
    EXPECT_EQ(opened.root().get<int>("V"), std::nullopt);
}
