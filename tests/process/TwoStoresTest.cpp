// Two stores of one process on one file, as two root keys make them, while one of them has an update.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/Wait.h"

using namespace VQRegLib;
using testing::HasSubstr;
using vqtest::TempStore;

namespace {

class TwoStores : public testing::Test {
protected:
    static int set(CRegLib& session, const char* name, unsigned long number) {
        return session.VQRegSetValue(*session.RootKey(), name, number);
    }

    // -1 when there is none.
    static std::int64_t number(CRegLib& session, const char* name) {
        CRegLib::eDataType type = CRegLib::eNone;
        unsigned char data[4] = {};
        unsigned long size = sizeof data;
        if (session.VQRegQueryValue(*session.RootKey(), name, type, data, &size) < 0) {
            return -1;
        }
        std::uint32_t result = 0;
        std::memcpy(&result, data, sizeof result);
        return result;
    }

    TempStore store;
    CRegLib first{store.path().c_str(), "First", CRegLib::eLocationDefault, nullptr};
    CRegLib second{store.path().c_str(), "Second", CRegLib::eLocationDefault, nullptr};
};

TEST_F(TwoStores, ChangesThroughTheOtherOneAreRefusedDuringAnUpdate) {
    ASSERT_EQ(set(second, "Old", 1), REGLIB_OK);
    CRegKey key;
    ASSERT_EQ(second.VQRegCreateKey(nullptr, "Empty", key, 1), REGLIB_OK);
    ASSERT_EQ(first.VQRegBeginUpdate(), REGLIB_OK);
    ASSERT_EQ(set(first, "A", 1), REGLIB_OK);
    const unsigned char byte = 7;
    EXPECT_EQ(set(second, "B", 1), REGLIB_E_FAIL);
    EXPECT_EQ(set(second, "Old", 2), REGLIB_E_FAIL);
    EXPECT_EQ(set(second, "Old", 1), REGLIB_E_FAIL) << "the update may be about to change it";
    EXPECT_EQ(second.VQRegSetValue(*second.RootKey(), "B", "x"), REGLIB_E_FAIL);
    EXPECT_EQ(second.VQRegSetValue(*second.RootKey(), "B", &byte, 1), REGLIB_E_FAIL);
    EXPECT_EQ(second.VQRegDeleteValue(*second.RootKey(), "Old"), REGLIB_E_FAIL);
    EXPECT_EQ(second.VQRegDeleteKey(*second.RootKey(), "Empty"), REGLIB_E_FAIL);
    EXPECT_EQ(second.VQRegCreateKey(nullptr, "New", key, 1), REGLIB_E_FAIL);
    EXPECT_EQ(second.VQRegBeginUpdate(), REGLIB_E_FAIL);
    EXPECT_EQ(second.VQRegEndUpdate(), REGLIB_E_FAIL);
    EXPECT_EQ(second.VQRegReload(), REGLIB_E_FAIL);
    ASSERT_EQ(first.VQRegEndUpdate(), REGLIB_OK);
    EXPECT_EQ(store.read(),
              "[First]\n\"A\"=dword:00000001\n"
              "[Second]\n\"Old\"=dword:00000001\n[Second/Empty]\n");
    EXPECT_EQ(set(second, "B", 2), REGLIB_OK);
    EXPECT_THAT(store.read(), HasSubstr("\"A\"=dword:00000001"));
    EXPECT_THAT(store.read(), HasSubstr("\"B\"=dword:00000002"));
    EXPECT_EQ(number(first, "A"), 1);
}

TEST_F(TwoStores, ARefusedChangeChangesNothing) {
    ASSERT_EQ(set(second, "Old", 1), REGLIB_OK);
    {
        const CRegUpdate update(first);
        set(second, "Old", 2);
        set(second, "New", 2);
        second.VQRegDeleteValue(*second.RootKey(), "Old");
        CRegKey key;
        second.VQRegCreateKey(nullptr, "Key", key, 1);
        EXPECT_EQ(second.VQRegCreateKey(nullptr, "Key", key, 0), REGLIB_E_KEY_NOT_FOUND);
        EXPECT_EQ(number(second, "Old"), 1);
        EXPECT_EQ(number(second, "New"), -1);
    }
    ASSERT_EQ(set(second, "Later", 3), REGLIB_OK);
    EXPECT_EQ(store.read(),
              "[First]\n[Second]\n\"Later\"=dword:00000003\n\"Old\"=dword:00000001\n");
}

TEST_F(TwoStores, ReadsThroughTheOtherOneSeeTheStateBeforeTheUpdate) {
    ASSERT_EQ(set(first, "A", 1), REGLIB_OK);
    CRegKey key;
    ASSERT_EQ(second.VQRegCreateKey(nullptr, "Sub", key, 1), REGLIB_OK);
    CRegKey noRecord;
    CRegKey top;
    ASSERT_EQ(second.VQRegCreateKey(&noRecord, "First", top, 0), REGLIB_OK);
    const auto seen = [&] {
        CRegLib::eDataType type = CRegLib::eNone;
        unsigned char data[4] = {};
        unsigned long size = sizeof data;
        EXPECT_EQ(second.VQRegQueryValue(top, "A", type, data, &size), REGLIB_OK);
        return int{data[0]};
    };
    {
        const CRegUpdate update(first);
        ASSERT_EQ(set(first, "A", 2), REGLIB_OK);
        EXPECT_EQ(seen(), 1);
        EXPECT_EQ(second.VQRegCreateKey(nullptr, "Sub", key, 1), REGLIB_OK) << "it exists";
        EXPECT_EQ(number(first, "A"), 2);
    }
    EXPECT_EQ(seen(), 2);
}

TEST_F(TwoStores, AMissingFileIsNotMadeByTheOtherOneDuringAnUpdate) {
    ASSERT_EQ(set(first, "A", 1), REGLIB_OK);
    {
        const CRegUpdate update(first);
        ASSERT_EQ(set(first, "A", 2), REGLIB_OK);
        ASSERT_EQ(std::remove(store.path().c_str()), 0);
        EXPECT_EQ(number(second, "A"), -1);
        EXPECT_FALSE(store.exists());
        EXPECT_EQ(number(first, "A"), 2);
    }
    EXPECT_THAT(store.read(), HasSubstr("\"A\"=dword:00000002"));
}

TEST_F(TwoStores, AnotherThreadWaitsForTheUpdateInstead) {
    std::thread other;
    {
        const CRegUpdate update(first);
        ASSERT_EQ(set(first, "A", 1), REGLIB_OK);
        other = std::thread([&] { EXPECT_EQ(set(second, "B", 1), REGLIB_OK); });
        ASSERT_EQ(set(first, "C", 1), REGLIB_OK);
    }
    other.join();
    EXPECT_EQ(store.read(),
              "[First]\n\"A\"=dword:00000001\n\"C\"=dword:00000001\n"
              "[Second]\n\"B\"=dword:00000001\n");
}

// The other thread waits for the update with the lock of the second store in its hands.
TEST_F(TwoStores, AThreadInAnUpdateDoesNotWaitForOneThatWaitsForIt) {
    std::thread other;
    {
        const CRegUpdate update(first);
        ASSERT_EQ(set(first, "A", 1), REGLIB_OK);
        other = std::thread([&] { EXPECT_EQ(set(second, "B", 1), REGLIB_OK); });
        EXPECT_TRUE(vqtest::waitUntil([&] { return !second.RootKey(); }));
        EXPECT_EQ(set(first, "C", 1), REGLIB_OK);
    }
    other.join();
    EXPECT_EQ(number(second, "B"), 1);
    EXPECT_EQ(number(first, "C"), 1);
}

TEST_F(TwoStores, AReloadInAnUpdateOfOnesOwnIsRefused) {
    const CRegUpdate update(first);
    ASSERT_EQ(set(first, "A", 1), REGLIB_OK);
    EXPECT_EQ(first.VQRegReload(), REGLIB_E_FAIL);
    EXPECT_EQ(number(first, "A"), 1);
}

TEST_F(TwoStores, AReloadMakesAnEditByHandSeen) {
    ASSERT_EQ(set(first, "A", 1), REGLIB_OK);
    store.write("[First]\n\"A\"=dword:00000005\n[Second]\n\"B\"=dword:00000006\n");
    EXPECT_EQ(number(first, "A"), 1) << "nobody has told";
    EXPECT_EQ(first.VQRegReload(), REGLIB_OK);
    EXPECT_EQ(number(first, "A"), 5);
    EXPECT_EQ(number(second, "B"), 6);
    CRegLib none("/no/such/directory/a.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_EQ(none.VQRegReload(), REGLIB_E_NOT_INITIALIZED);
}

}  // namespace
