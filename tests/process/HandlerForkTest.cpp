// Children of a process that has change handlers.
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ForkedChild.h"
#include "support/ForksWithThreads.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::ForkedChild;
using vqtest::Handler;
using vqtest::moveFileTime;
using vqtest::numberOf;
using vqtest::openSession;
using vqtest::setNumber;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

constexpr unsigned kForkPatienceSeconds = 60;

class HandlerFork : public vqtest::WatchedStore {
protected:
    void SetUp() override {
        ::alarm(kForkPatienceSeconds + 30);
        WatchedStore::SetUp();
    }

    // Registers a handler in a child, changes the file and waits for the call.
    bool isCalledFor(CRegLib& own) const {
        Handler handler;
        own.SetRegistryChangeHandler(&handler);
        if (!waitWatchers(1) || !vqtest::hasSemaphore()) {
            return false;
        }
        moveFileTime(file.path());
        own.SendRegistryChangeNotification();
        const bool isCalled =
            waitUntil([&] { return handler.calls() == 1; }, std::chrono::milliseconds(5000));
        own.ClrRegistryChangeHandler(&handler);
        return isCalled;
    }
};

}  // namespace

TEST_F(HandlerFork, AChildMayUseAndCloseWhatItInherits) {
    Handler handler;
    watch(handler);
    ForkedChild child([&] {
        ::alarm(kForkPatienceSeconds);
        if (setNumber(*session, "Number", 11) != REGLIB_OK || vqtest::threads().size() != 1) {
            return 1;
        }
        session->SendRegistryChangeNotification();
        session->ClrRegistryChangeHandler(&handler);
        session.reset();
        session = openSession(file.path());
        const bool reads = numberOf(*session, "Number") == 11;
        std::exit(reads ? 0 : 2);
        return 0;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(handler.waitCalls(1)) << "the child's clear is its own affair";
    EXPECT_EQ(numberOf(*session, "Number"), 11);
    EXPECT_TRUE(vqtest::hasSemaphore());
    announceChange();
    EXPECT_TRUE(handler.waitCalls(2));
}

TEST_F(HandlerFork, AParentsHandlersAreNotCalledInTheChild) {
    std::atomic<int> callsHere{0};
    Handler handler([&] { ++callsHere; });
    watch(handler);
    ForkedChild child([&] {
        ::alarm(kForkPatienceSeconds);
        const auto other = openSession(file.path(), "Other");
        return isCalledFor(*other) && callsHere == 0 ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(HandlerFork, AChildMayRegisterItsOwnOnANewStore) {
    Handler handler;
    watch(handler);
    ForkedChild child([&] {
        ::alarm(kForkPatienceSeconds);
        return isCalledFor(*openSession(file.path(), "Other")) ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(HandlerFork, AChildMayRegisterItsOwnOnAnInheritedStore) {
    Handler handler;
    watch(handler);
    ForkedChild child([&] {
        ::alarm(kForkPatienceSeconds);
        return isCalledFor(*session) ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(HandlerFork, AChildMayRegisterItsOwnOnAFileThatTheParentWatches) {
    Handler handler;
    watch(handler);
    ForkedChild child([&] {
        ::alarm(kForkPatienceSeconds);
        session.reset();
        return isCalledFor(*openSession(file.path())) ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(HandlerFork, AChildMadeWhileAHandlerRunsMayOpenSetAndExit) {
    std::atomic<bool> mayReturn{false};
    Handler handler([&] { waitUntil([&] { return mayReturn.load(); }); });
    watch(handler);
    announceChange();
    ASSERT_TRUE(handler.waitBegun(1));
    ForkedChild child([&] {
        ::alarm(kForkPatienceSeconds / 4);
        auto other = openSession(file.path(), "Other");
        const bool isSet = setNumber(*other, "Number", 12) == REGLIB_OK &&
                           setNumber(*session, "Number", 13) == REGLIB_OK;
        other.reset();
        session.reset();
        return isSet ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    mayReturn = true;
    EXPECT_TRUE(handler.waitCalls(1));
}

// The first process of a pid namespace, which makes another namespace: its child has its number.
TEST_F(HandlerFork, AChildMayHaveTheNumberOfItsParent) {
    session.reset();
    ForkedChild outer([&] {
        if (::unshare(CLONE_NEWPID) != 0) {
            return 1;
        }
        ForkedChild first([&] {
            session = openSession(file.path());
            Handler handler;
            handler.watch(session);
            if (::getpid() != 1 || !waitWatchers(1) || ::unshare(CLONE_NEWPID) != 0) {
                return 2;
            }
            ForkedChild child([&] {
                if (::getpid() != 1) {
                    return 3;
                }
                session.reset();
                const auto own = openSession(file.path(), "Other");
                Handler ofChild;
                ofChild.watch(own);
                if (!waitWatchers(1)) {
                    return 4;
                }
                moveFileTime(file.path());
                // The two share a semaphore, so the parent may be the one that is woken.
                const bool isCalled = waitUntil([&] {
                    own->SendRegistryChangeNotification();
                    return ofChild.calls() > 0;
                });
                return isCalled ? 0 : 5;
            });
            return child.wait();
        });
        return first.wait();
    });
    EXPECT_EQ(outer.wait(), 0);
}

TEST_F(HandlerFork, AHandlerMayFork) {
    std::atomic<int> status{-1};
    Handler handler([&] {
        ForkedChild child([&] {
            sigset_t none;
            sigemptyset(&none);
            ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
            ::alarm(kForkPatienceSeconds / 4);
            const bool isSet = setNumber(*session, "Number", 14) == REGLIB_OK;
            return isSet ? 0 : 1;
        });
        status = child.wait();
    });
    watch(handler);
    // Another process sends: no thread of this one may be inside a call at the fork.
    Agent sender(VQREG_AGENT_PATH);
    ASSERT_EQ(sender.open(file.path()), REGLIB_OK);
    moveFileTime(file.path());
    ASSERT_EQ(sender.send(), REGLIB_OK);
    ASSERT_TRUE(handler.waitCalls(1));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(numberOf(*session, "Number"), 14);
}

TEST_F(HandlerFork, ChildrenOfAProcessThatIsBeingNotifiedMayUseIt) {
    Handler handler;
    watch(handler);
    ForkedChild sender([&] {
        ::alarm(kForkPatienceSeconds);
        const auto own = openSession(file.path(), "Sender");
        for (;;) {
            own->SendRegistryChangeNotification();
        }
        return 0;
    });
    int failures = 0;
    for (int i = 0; i < 200 && failures == 0; ++i) {
        ForkedChild child([&] {
            ::alarm(kForkPatienceSeconds / 4);
            const auto other = openSession(file.path(), "Other");
            session->ClrRegistryChangeHandler(&handler);
            session.reset();
            return other->RootKey() != nullptr ? 0 : 1;
        });
        failures += child.wait() != 0 ? 1 : 0;
    }
    EXPECT_EQ(failures, 0);
}
