// Destroying stores, and ending processes, while handlers wait, run or are about to be called.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <stdexcept>
#include <thread>

#include "VQRegLib.h"
#include "support/ForkedChild.h"
#include "support/Threads.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::CallElsewhere;
using vqtest::ForkedChild;
using vqtest::Handler;
using vqtest::kPatienceSeconds;
using vqtest::moveFileTime;
using vqtest::openSession;
using vqtest::setNumber;
using vqtest::TempStore;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

class HandlerShutdown : public vqtest::PatientStore {
protected:
    static bool waitNoWatchers() {
        return waitUntil([] { return vqtest::countThreads("FileWatch") == 0; });
    }
};

}  // namespace

TEST_F(HandlerShutdown, EndsAWatcherThatWaits) {
    Handler handler;
    watch(handler);
    ::alarm(30);  // long before the watcher would look by itself
    session.reset();
    EXPECT_TRUE(waitNoWatchers());
    EXPECT_EQ(vqtest::countThreads("RegChgNotif"), 1);
    EXPECT_EQ(handler.begun(), 0);
}

TEST_F(HandlerShutdown, WaitsForARoundThatHasBegun) {
    std::atomic<bool> mayReturn{false};
    Handler handler([&] { waitUntil([&] { return mayReturn.load(); }); });
    Handler another([&] { waitUntil([&] { return mayReturn.load(); }); });
    handler.watch(session);
    watch(another);
    announceChange();
    ASSERT_TRUE(waitUntil([&] { return handler.begun() + another.begun() == 1; }));
    int callsAtEnd = 0;
    {
        const CallElsewhere closing([&] {
            session.reset();
            callsAtEnd = handler.calls() + another.calls();
        });
        EXPECT_TRUE(closing.waits());
        mayReturn = true;
        EXPECT_TRUE(closing.returns());
    }
    EXPECT_EQ(callsAtEnd, 2) << "the round is finished";
    EXPECT_TRUE(waitNoWatchers());
}

TEST_F(HandlerShutdown, EndsAWatcherThatIsAboutToCall) {
    for (int round = 0; round < 25; ++round) {
        auto own = openSession(file.path(), ("Root" + std::to_string(round)).c_str());
        std::atomic<bool> isClosed{false};
        std::atomic<bool> wasLate{false};
        Handler handler([&] { wasLate = wasLate || isClosed; });
        handler.watch(own);
        ASSERT_TRUE(waitWatchers(1));
        moveFileTime(file.path());
        own->SendRegistryChangeNotification();
        std::this_thread::sleep_for(std::chrono::microseconds(round * 20));
        own.reset();
        isClosed = true;
        EXPECT_FALSE(wasLate);
        ASSERT_TRUE(waitNoWatchers());
    }
}

TEST_F(HandlerShutdown, EndsWhileAHandlerOpensSessionsAndRegisters) {
    TempStore otherFile;
    std::atomic<bool> isClosing{false};
    Handler inner;
    Handler handler([&] {
        waitUntil([&] { return isClosing.load(); });
        const auto other = openSession(otherFile.path());
        const auto same = openSession(file.path());
        other->SetRegistryChangeHandler(&inner);
        same->SetRegistryChangeHandler(&inner);
        same->ClrRegistryChangeHandler(&inner);
        setNumber(*same, "Number", 3);
        same->SendRegistryChangeNotification();
    });
    watch(handler);
    announceChange();
    ASSERT_TRUE(handler.waitBegun(1));
    const CallElsewhere closing([&] { session.reset(); });
    EXPECT_TRUE(closing.waits());
    isClosing = true;  // for the handler
    EXPECT_TRUE(closing.returns());
    EXPECT_EQ(handler.calls(), 1);
    EXPECT_TRUE(waitNoWatchers());
}

TEST_F(HandlerShutdown, TheRestOfTheProcessGoesOnMeanwhile) {
    std::atomic<bool> mayReturn{false};
    Handler slow([&] { waitUntil([&] { return mayReturn.load(); }); });
    watch(slow);
    announceChange();
    ASSERT_TRUE(slow.waitBegun(1));
    const CallElsewhere closing([&] { session.reset(); });
    EXPECT_TRUE(closing.waits());
    TempStore otherFile;
    auto other = openSession(otherFile.path());
    Handler handler;
    handler.watch(other);
    EXPECT_TRUE(waitWatchers(2));
    moveFileTime(otherFile.path());
    EXPECT_EQ(other->SendRegistryChangeNotification(), REGLIB_OK);
    EXPECT_TRUE(handler.waitCalls(1));
    const auto again = openSession(file.path());
    EXPECT_EQ(setNumber(*again, "Number", 9), REGLIB_OK);
    other.reset();
    EXPECT_TRUE(closing.waits());
    mayReturn = true;
}

TEST_F(HandlerShutdown, AHandlerMayCloseTheLastSessionOfItsStore) {
    const auto sender = openSession(file.path(), "Sender");
    Handler closing([&] { session.reset(); });
    Handler another([&] { session.reset(); });
    closing.watch(session);
    watch(another);
    moveFileTime(file.path());
    sender->SendRegistryChangeNotification();
    ASSERT_TRUE(waitUntil([&] { return closing.calls() + another.calls() == 1; }));
    EXPECT_TRUE(waitNoWatchers());
    EXPECT_EQ(closing.begun() + another.begun(), 1) << "the rest of the round is dropped";

    session = openSession(file.path());
    Handler next;
    watch(next);
    announceChange();
    EXPECT_TRUE(next.waitCalls(1));
}

TEST_F(HandlerShutdown, AHandlerMayCloseTheLastSessionOfAnotherStore) {
    TempStore otherFile;
    auto other = openSession(otherFile.path());
    Handler ofOther;
    ofOther.watch(other);
    Handler handler([&] { other.reset(); });
    watch(handler, 2);
    announceChange();
    ASSERT_TRUE(handler.waitCalls(1));
    EXPECT_TRUE(waitWatchers(1));
}

TEST_F(HandlerShutdown, AHandlerMayReopenItsStoreWhileTheLastSessionIsClosed) {
    std::unique_ptr<CRegLib> kept;
    Handler handler([&] { kept = openSession(file.path()); });
    watch(handler);
    announceChange();
    ASSERT_TRUE(handler.waitBegun(1));
    session.reset();
    ASSERT_TRUE(handler.waitCalls(1));
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(setNumber(*kept, "Number", 4), REGLIB_OK);
    kept.reset();
    EXPECT_TRUE(waitNoWatchers());
}

TEST_F(HandlerShutdown, AHandlerMayClearAnotherWhileTheLastSessionIsClosed) {
    CRegLib* const closed = session.get();
    std::atomic<bool> isClosing{false};
    Handler* second = nullptr;
    Handler handlers[] = {
        Handler([&] {
            waitUntil([&] { return isClosing.load(); });
            closed->ClrRegistryChangeHandler(second);
            closed->SetRegistryChangeHandler(second);  // too late: nobody will call it
            closed->ClrRegistryChangeHandler(second);
        }),
        Handler()};
    second = &handlers[1];  // the round comes to it after the first one
    second->watch(session);
    watch(handlers[0]);
    announceChange();
    ASSERT_TRUE(handlers[0].waitBegun(1));
    const CallElsewhere closing([&] { session.reset(); });
    EXPECT_TRUE(closing.waits());
    isClosing = true;  // for the handler
    EXPECT_TRUE(closing.returns());
    EXPECT_EQ(handlers[0].calls(), 1);
    EXPECT_EQ(handlers[1].begun(), 0);
    EXPECT_TRUE(waitNoWatchers());
}

TEST_F(HandlerShutdown, AnExceptionThatLeavesAHandlerEndsNothing) {
    session.reset();
    ForkedChild child([&] {
        ::alarm(kPatienceSeconds);
        std::set_terminate([] { ::_exit(9); });
        session = openSession(file.path());
        Handler handler([] { throw std::runtime_error("left the handler"); });
        watch(handler);
        for (int i = 1; i <= 3; ++i) {
            announceChange();
            if (!handler.waitBegun(i)) {
                return 1;
            }
        }
        session.reset();
        return 0;
    });
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(HandlerShutdown, RegisteringWhileAHandlerRegistersDoesNotBlock) {
    std::atomic<bool> isRegistering{false};
    Handler fromInside;
    Handler fromOutside;
    Handler handler([&] {
        waitUntil([&] { return isRegistering.load(); });
        session->SetRegistryChangeHandler(&fromInside);
        session->ClrRegistryChangeHandler(&fromInside);
        fromInside.watch(session);
    });
    watch(handler);
    announceChange();
    ASSERT_TRUE(handler.waitBegun(1));
    const CallElsewhere registering([&] {
        fromOutside.watch(session);
        session->ClrRegistryChangeHandler(&handler);
    });
    EXPECT_TRUE(registering.waits());
    isRegistering = true;  // for the handler
    EXPECT_TRUE(registering.returns());
    announceChange();
    EXPECT_TRUE(fromOutside.waitCalls(1));
    EXPECT_TRUE(waitUntil([&] { return fromInside.calls() >= 1; }));
    EXPECT_EQ(handler.calls(), 1);
}
