// Ending processes while handlers wait or run. In the children a root key of their own makes their
// session the only one of its store.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <utility>

#include "VQRegLib.h"
#include "support/ForkedChild.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::Common;
using vqtest::ForkedChild;
using vqtest::Handler;
using vqtest::kPatienceSeconds;
using vqtest::moveFileTime;
using vqtest::openSession;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

class HandlerExit : public vqtest::PatientStore {};

}  // namespace

TEST_F(HandlerExit, AProcessMayExitWhileAHandlerRuns) {
    ForkedChild child([&] {
        ::alarm(kPatienceSeconds);
        Handler handler([] { ::pause(); });
        auto* const own = openSession(file.path(), "Child").release();
        own->SetRegistryChangeHandler(&handler);
        if (!waitWatchers(1)) {
            return 1;
        }
        moveFileTime(file.path());
        own->SendRegistryChangeNotification();
        std::exit(handler.waitBegun(1) ? 4 : 2);
        return 0;
    });
    EXPECT_EQ(child.wait(), 4);
}

TEST_F(HandlerExit, AHandlerMayExitTheProcess) {
    for (const bool isStatic : {false, true}) {
        Common<std::atomic<bool>> isReady;
        ForkedChild child([&] {
            ::alarm(kPatienceSeconds);
            static std::unique_ptr<CRegLib> atExit;  // destroyed by the thread that calls exit
            Handler handler([] { std::exit(6); });
            auto own = openSession(file.path(), "Child");
            CRegLib& opened = *own;
            atExit = isStatic ? std::move(own) : std::unique_ptr<CRegLib>();
            opened.SetRegistryChangeHandler(&handler);
            *isReady = waitWatchers(1);
            return ::pause();
        });
        ASSERT_TRUE(waitUntil([&] { return isReady->load(); }));
        announceChange();
        EXPECT_EQ(child.wait(), 6) << isStatic;
    }
}

TEST_F(HandlerExit, SessionsMayBeClosedByExit) {
    ForkedChild child([&] {
        ::alarm(kPatienceSeconds);
        static Handler handler;
        static std::unique_ptr<CRegLib> atExit;
        atExit = openSession(file.path(), "Child");
        atExit->SetRegistryChangeHandler(&handler);
        if (!waitWatchers(1)) {
            return 1;
        }
        moveFileTime(file.path());
        atExit->SendRegistryChangeNotification();
        std::exit(7);
        return 0;
    });
    EXPECT_EQ(child.wait(), 7);
    EXPECT_TRUE(vqtest::semaphoreFiles().empty());
}
