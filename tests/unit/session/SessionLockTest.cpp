// Which calls of a session enter the session lock of their store.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "RegLib/instance/Directory.h"
#include "RegLib/session/SessionLock.h"
#include "RegLib/store/Store.h"
#include "VQRegLib.h"
#include "support/Handlers.h"
#include "support/TempStore.h"
#include "support/Threads.h"

using namespace VQRegLib;
using vqtest::CallElsewhere;
using vqtest::Handler;
using vqtest::TempStore;

namespace {

class SessionLock : public testing::Test {
protected:
    ~SessionLock() override { get_reglibImplDirectory()->releaseRegLibImpl(&store); }

    // The store of the session.
    CRegLibImpl& acquire() const {
        return *get_reglibImplDirectory()->acquireRegLibImpl(file.path().c_str(), nullptr,
                                                             CRegLib::eLocationDefault, nullptr);
    }

    // Calls something on another thread while this one is inside.
    void expectWaits(const char* what, const std::function<void()>& call) {
        store.m_critSec.enter(__LINE__);
        const CallElsewhere elsewhere(call);
        EXPECT_TRUE(elsewhere.waits()) << what;
        store.m_critSec.leave(__LINE__);
        EXPECT_TRUE(elsewhere.returns()) << what;
        EXPECT_TRUE(vqtest::isFree(store.m_critSec)) << what;
    }

    TempStore file;
    CRegLib session{file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
    CRegLibImpl& store = acquire();
    CRegKey& root = *session.RootKey();
    CRegKey key;
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char data[4] = {};
    unsigned long size = sizeof data;
    std::vector<CRegKey*> keys;
    std::vector<std::string> names;
};

}  // namespace

TEST_F(SessionLock, IsEnteredByEveryOperation) {
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"create", [&] { session.VQRegCreateKey(nullptr, "k", key, 1); }},
        {"number", [&] { session.VQRegSetValue(key, "n", 1ul); }},
        {"text", [&] { session.VQRegSetValue(key, "t", "x"); }},
        {"bytes", [&] { session.VQRegSetValue(key, "b", data, 2); }},
        {"type", [&] { session.VQRegQueryValueType(key, "n", type); }},
        {"query", [&] { session.VQRegQueryValue(key, "n", type, data, &size); }},
        {"keys", [&] { session.VQRegEnumKeys(root, 0, name); }},
        {"values", [&] { session.VQRegEnumValues(key, 0, name, type); }},
        {"delete value", [&] { session.VQRegDeleteValue(key, "n"); }},
        {"delete key", [&] { session.VQRegDeleteKey(root, "k"); }},
        {"reload", [&] { session.VQRegReload(); }},
        {"begin and end", [&] { session.VQRegBeginUpdate(), session.VQRegEndUpdate(); }},
        {"send", [&] { session.SendRegistryChangeNotification(); }},
    };
    for (const auto& [what, call] : calls) {
        expectWaits(what, call);
    }
}

TEST_F(SessionLock, IsEnteredByWhatNeedsNoMoreOfTheStore) {
    expectWaits("the root key", [&] { session.RootKey(); });
    expectWaits("a path", [&] { session.ParseKeyPath("a/b", names); });
    expectWaits("a vector", [&] { session.VQRegCreateKeyVect(&root, "a/b", keys, names, 1); });
    expectWaits("its end", [&] { session.VQRegDestroyKeyVect(keys); });
}

TEST_F(SessionLock, IsEnteredByADump) {
    testing::internal::CaptureStdout();
    expectWaits("a dump", [&] { session.dump(); });
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
}

TEST_F(SessionLock, IsKeptByAnUpdateUntilItsEnd) {
    ASSERT_EQ(session.VQRegBeginUpdate(), REGLIB_OK);
    ASSERT_EQ(session.VQRegBeginUpdate(), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(root, "n", 1ul), REGLIB_OK);
    const CallElsewhere elsewhere([&] { session.VQRegQueryValue(root, "n", type, data, &size); });
    EXPECT_TRUE(elsewhere.waits());
    ASSERT_EQ(session.VQRegSetValue(root, "n", 2ul), REGLIB_OK);
    ASSERT_EQ(session.VQRegEndUpdate(), REGLIB_OK);
    EXPECT_TRUE(elsewhere.waits()) << "an outer one goes on";
    ASSERT_EQ(session.VQRegEndUpdate(), REGLIB_OK);
    EXPECT_TRUE(elsewhere.returns());
    EXPECT_EQ(data[0], 2) << "nothing of the update is seen before its end";
    EXPECT_TRUE(vqtest::isFree(store.m_critSec));
}

TEST_F(SessionLock, IsNotNeededForHandlers) {
    Handler handler;
    store.m_critSec.enter(__LINE__);
    const CallElsewhere elsewhere([&] {
        session.SetRegistryChangeHandler(&handler);
        session.ClrRegistryChangeHandler(&handler);
    });
    EXPECT_TRUE(elsewhere.returns());
    store.m_critSec.leave(__LINE__);
}

TEST_F(SessionLock, IsLeftByItsThreadOnlyWhenUpdatesAreDropped) {
    ASSERT_EQ(session.VQRegBeginUpdate(), REGLIB_OK);
    ASSERT_EQ(session.VQRegBeginUpdate(), REGLIB_OK);
    ASSERT_EQ(session.VQRegSetValue(root, "n", 1ul), REGLIB_OK);
    const std::uint32_t number = store.updateNumber();
    const CallElsewhere elsewhere([&] { dropUpdates(store, number, 2); });
    EXPECT_TRUE(elsewhere.returns()) << "it waits for nobody";
    dropUpdates(store, number + 1, 2);
    dropUpdates(store, 0, 2);
    dropUpdates(store, number, 0);
    EXPECT_EQ(store.updateNumber(), number);
    EXPECT_FALSE(vqtest::isFree(store.m_critSec));
    EXPECT_EQ(session.VQRegQueryValueType(root, "n", type), REGLIB_OK);
    dropUpdates(store, number, 3);
    EXPECT_FALSE(store.isUpdating());
    EXPECT_TRUE(vqtest::isFree(store.m_critSec)) << "it was entered by two levels";
    EXPECT_LT(session.VQRegQueryValueType(root, "n", type), 0);
    dropUpdates(store, 0, 1);
    EXPECT_TRUE(vqtest::isFree(store.m_critSec)) << "there is none to drop";
}
