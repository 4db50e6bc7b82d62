// The session lock when an exception passes, and how it is waited for in an update.
#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <string>
#include <thread>

#include "RegLib/instance/Directory.h"
#include "RegLib/store/Store.h"
#include "VQRegLib.h"
#include "support/FailingCopies.h"
#include "support/TempStore.h"
#include "support/Threads.h"

using namespace VQRegLib;
using vqtest::CopiesLeft;
using vqtest::isFree;

namespace {

thread_local int t_naps = 0;
thread_local long t_nanoseconds = 0;  // of all of them

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __real_nanosleep(const timespec* time, timespec* left);
extern "C" int __wrap_nanosleep(const timespec* time, timespec* left);
extern "C" int __wrap_nanosleep(const timespec* time, timespec* left) {
    ++t_naps;
    t_nanoseconds += time->tv_sec * 1'000'000'000 + time->tv_nsec;
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

// Its holder may be waiting for the update, so the wait has an end.
TEST(SessionLockInAnUpdate, IsAskedForWithNapsAndThenGivenUp) {
    if (sizeof(void*) != 8) {
        GTEST_SKIP() << "the library calls other functions here";
    }
    const vqtest::TempStore file;
    CRegLib session(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    const std::string otherName =
        file.directory() + "/./" + file.path().substr(file.directory().size() + 1);
    CRegLib writer(otherName.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CRegLibImpl& store = *get_reglibImplDirectory()->acquireRegLibImpl(
        file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isOver{false};
    std::thread holder([&] {
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
    EXPECT_EQ(session.VQRegReload(), REGLIB_E_FAIL);
    EXPECT_EQ(t_naps, 200);
    EXPECT_EQ(t_nanoseconds, 200'000'000);
    EXPECT_EQ(writer.VQRegEndUpdate(), REGLIB_OK);
    isOver = true;
    isOver.notify_one();
    holder.join();
    get_reglibImplDirectory()->releaseRegLibImpl(&store);
}
