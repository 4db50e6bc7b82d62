// What the tests of change handlers have in common.
#ifndef VQTEST_WATCHED_STORE_H
#define VQTEST_WATCHED_STORE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "VQRegLib.h"
#include "support/Handlers.h"
#include "support/Sessions.h"
#include "support/TempStore.h"

namespace vqtest {

/// A store with a session, whose file is older than this day.
class WatchedStore : public testing::Test {
protected:
    void SetUp() override {
        session = openSession(file.path());
        ASSERT_NE(session->RootKey(), nullptr);
        ASSERT_EQ(setNumber(*session, "Number", 1), VQRegLib::REGLIB_OK);
        moveFileTime(file.path());
    }

    /// Registers a handler and waits until the thread has seen the file.
    void watch(Handler& handler, long watchers = 1) {
        handler.watch(session);
        ASSERT_TRUE(waitWatchers(watchers));
    }

    /// Makes the file look changed and tells everybody.
    void announceChange() {
        moveFileTime(file.path());
        ASSERT_EQ(session->SendRegistryChangeNotification(), VQRegLib::REGLIB_OK);
    }

    void announceNothing(int times = 20) {
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(session->SendRegistryChangeNotification(), VQRegLib::REGLIB_OK);
        }
    }

    TempStore file;
    std::unique_ptr<CRegLib> session;
};

constexpr unsigned kPatienceSeconds = 90;

/// The same, where a deadlock ends the process in the end.
class PatientStore : public WatchedStore {
protected:
    void SetUp() override {
        ::alarm(kPatienceSeconds);
        WatchedStore::SetUp();
    }
};

}  // namespace vqtest

#endif  // VQTEST_WATCHED_STORE_H
