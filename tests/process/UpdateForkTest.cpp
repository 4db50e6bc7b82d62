// Children of fork that inherit an update, or a directory of stores that another thread is changing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "VQRegLib.h"
#include "support/ForkedChild.h"
#include "support/TempStore.h"
#include "support/Wait.h"

using namespace VQRegLib;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::TempStore;

namespace {

constexpr unsigned kUpdatePatienceSeconds = 30;

class UpdateFork : public testing::Test {
protected:
    static int set(CRegLib& session, const char* name, unsigned long number) {
        return session.VQRegSetValue(*session.RootKey(), name, number);
    }
    int set(const char* name, unsigned long number) { return set(session, name, number); }

    // -1 when there is none.
    std::int64_t number(CRegKey& key, const char* name) {
        CRegLib::eDataType type = CRegLib::eNone;
        unsigned char data[4] = {};
        unsigned long size = sizeof data;
        if (session.VQRegQueryValue(key, name, type, data, &size) < 0) {
            return -1;
        }
        std::uint32_t result = 0;
        std::memcpy(&result, data, sizeof result);
        return result;
    }
    std::int64_t number(const char* name) { return number(*session.RootKey(), name); }

    TempStore store;
    CRegLib session{store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
};

TEST_F(UpdateFork, TheChildHasNoUpdate) {
    CRegUpdate update(session);
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    {
        CRegUpdate inner(session);
        ForkedChild child([&] {
            ::alarm(kUpdatePatienceSeconds);
            if (inner.end() != REGLIB_E_FAIL || update.end() != REGLIB_E_FAIL) {
                return 1;
            }
            return session.VQRegEndUpdate() == REGLIB_E_FAIL ? 0 : 2;
        });
        EXPECT_EQ(child.wait(), 0) << "it must not wait for its parent";
    }
    ASSERT_EQ(set("B", 2), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n") << "the parent's update goes on";
    EXPECT_EQ(update.end(), REGLIB_OK);
    EXPECT_EQ(store.read(), "[Velquist]\n\"A\"=dword:00000001\n\"B\"=dword:00000002\n");
}

TEST_F(UpdateFork, TheChildGoesOnAfterTheUpdateFromWhatItWrote) {
    CRegKey key;
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "Kept", key, 1), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(key, "A", 1ul), REGLIB_OK);
    Common<std::atomic<bool>> isOver;
    std::unique_ptr<ForkedChild> child;
    {
        const CRegUpdate update(session);
        ASSERT_EQ(session.VQRegSetValue(key, "A", 2ul), REGLIB_OK);
        ASSERT_EQ(set("Passing", 1), REGLIB_OK);
        CRegKey passing;
        ASSERT_EQ(session.VQRegCreateKey(nullptr, "PassingKey", passing, 1), REGLIB_OK);
        child = std::make_unique<ForkedChild>([&] {
            ::alarm(kUpdatePatienceSeconds);
            // Before the update's end a read waits for nobody: it finds the file as it was.
            const bool isRight =
                vqtest::waitUntil([&] { return isOver->load(); }) && number(key, "A") == 3 &&
                number("Passing") == -1 &&
                session.VQRegSetValue(passing, "X", 1ul) == REGLIB_E_INVALID_HANDLE &&
                session.VQRegSetValue(key, "B", 4ul) == REGLIB_OK;
            return isRight ? 0 : 1;
        });
        ASSERT_EQ(session.VQRegSetValue(key, "A", 3ul), REGLIB_OK);
        ASSERT_EQ(session.VQRegDeleteValue(*session.RootKey(), "Passing"), REGLIB_OK);
        ASSERT_EQ(session.VQRegDeleteKey(*session.RootKey(), "PassingKey"), REGLIB_OK);
    }
    *isOver = true;
    EXPECT_EQ(child->wait(), 0);
    EXPECT_EQ(store.read(),
              "[Velquist]\n[Velquist/Kept]\n\"A\"=dword:00000003\n\"B\"=dword:00000004\n");
}

TEST_F(UpdateFork, TheChildOfAParentThatDiesHasNothingOfItsUpdate) {
    ASSERT_EQ(set("Old", 1), REGLIB_OK);
    Common<std::atomic<int>> outcome;
    Common<std::atomic<bool>> isForked;
    ForkedChild parent([&] {
        CRegLib own(store.path().c_str(), "Own", CRegLib::eLocationDefault, nullptr);
        const bool begun = own.VQRegBeginUpdate() >= 0 && set(own, "Half", 1) >= 0;
        if (begun && ::fork() == 0) {
            ::alarm(kUpdatePatienceSeconds);
            *isForked = true;
            *outcome = set(own, "Whole", 1) == REGLIB_OK ? 1 : -1;
            ::_exit(0);
        }
        for (;;) {
            ::pause();
        }
        return 0;
    });
    ASSERT_TRUE(vqtest::waitUntil([&] { return isForked->load(); }));
    parent.kill();
    ASSERT_TRUE(vqtest::waitUntil([&] { return *outcome != 0; }));
    EXPECT_EQ(*outcome, 1);
    EXPECT_EQ(store.read(),
              "[Own]\n\"Whole\"=dword:00000001\n[Velquist]\n\"Old\"=dword:00000001\n");
}

TEST_F(UpdateFork, TheChildMayBeginOneOfItsOwn) {
    std::unique_ptr<ForkedChild> child;
    {
        const CRegUpdate update(session);
        ASSERT_EQ(set("A", 1), REGLIB_OK);
        child = std::make_unique<ForkedChild>([&] {
            ::alarm(kUpdatePatienceSeconds);
            CRegUpdate own(session);
            return own.result() == REGLIB_OK && set("B", 2) == REGLIB_OK && own.end() == REGLIB_OK
                       ? 0
                       : 1;
        });
    }
    EXPECT_EQ(child->wait(), 0);
    EXPECT_EQ(number("A"), 1);
    EXPECT_EQ(number("B"), 2);
}

// The thread that opens a session waits for the file's lock, with the directory in its hands.
TEST_F(UpdateFork, AChildThatInheritsTheDirectoryHalfChangedIsRefusedEverything) {
    ASSERT_EQ(set("A", 1), REGLIB_OK);
    const TempStore other;
    Common<std::atomic<bool>> isHeld;
    ForkedChild holder([&] {
        CRegLib own(other.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        own.VQRegBeginUpdate();
        *isHeld = true;
        for (;;) {
            ::pause();
        }
        return 0;
    });
    ASSERT_TRUE(vqtest::waitUntil([&] { return isHeld->load(); }));
    std::atomic<bool> isOpening{false};
    std::thread opening([&] {
        isOpening = true;
        CRegLib waiting(other.path().c_str(), "Waiting", CRegLib::eLocationDefault, nullptr);
        EXPECT_NE(waiting.RootKey(), nullptr);
    });
    ASSERT_TRUE(vqtest::waitUntil([&] { return isOpening.load(); }));
    // How far that thread has come shows only in a child that is refused.
    int status = 0;
    for (int attempt = 0; attempt < 100 && status == 0; ++attempt) {
        ForkedChild child([&] {
            ::alarm(kUpdatePatienceSeconds);
            CRegLib fresh(store.path().c_str(), "Fresh", CRegLib::eLocationDefault, nullptr);
            const bool isRefused = fresh.RootKey() == nullptr && session.RootKey() == nullptr &&
                                   session.VQRegReload() == REGLIB_E_FAIL &&
                                   session.VQRegEndUpdate() == REGLIB_E_FAIL &&
                                   session.SendRegistryChangeNotification() == REGLIB_E_FAIL;
            session.SetRegistryChangeHandler(nullptr);
            const bool isUsable = fresh.RootKey() != nullptr && session.RootKey() != nullptr;
            return isRefused ? 1 : isUsable ? 0 : 2;
        });
        status = child.wait();
    }
    EXPECT_EQ(status, 1);
    holder.kill();
    opening.join();
    EXPECT_EQ(number("A"), 1);
}

}  // namespace
