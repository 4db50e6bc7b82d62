// The watcher by itself: a file and handlers, and no store.
#include "RegLib/watch/Watcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "support/Handlers.h"
#include "support/TempStore.h"
#include "support/Threads.h"

namespace {

using namespace VQRegLib;
using namespace vqtest;

class Watcher : public testing::Test {
protected:
    void SetUp() override {
        file.write("anything");
        moveFileTime(file.path());
        watcher = std::make_unique<CRegWatcherThread>(eRegModeFile, file.path(), 0);
        watcher->setRegistryChangeHandler(&handler);
        ASSERT_TRUE(waitWatchers(1));
    }

    void moveAndWake() {
        moveFileTime(file.path());
        watcher->wake();
    }

    TempStore file;
    Handler handler;
    std::unique_ptr<CRegWatcherThread> watcher;
};

TEST_F(Watcher, NeedsNoStoreToCallItsHandlers) {
    moveAndWake();
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(Watcher, CallsAHandlerNoMoreThatWasRemoved) {
    Handler other;
    watcher->setRegistryChangeHandler(&other);
    watcher->clrRegistryChangeHandler(&handler);
    moveAndWake();
    ASSERT_TRUE(other.waitCalls(1));
    EXPECT_EQ(handler.calls(), 0);
}

// So whoever registers or removes one knows that no round is going on that it would come into half-way.
TEST_F(Watcher, TakesAndGivesBackHandlersBetweenRounds) {
    std::atomic<bool> isOver{false};
    Handler slow([&] { isOver.wait(false); });
    Handler other;
    watcher->setRegistryChangeHandler(&slow);
    moveAndWake();
    ASSERT_TRUE(slow.waitBegun(1));
    {
        const CallElsewhere taking([&] { watcher->setRegistryChangeHandler(&other); });
        const CallElsewhere givingBack([&] { watcher->clrRegistryChangeHandler(&handler); });
        EXPECT_TRUE(taking.waits());
        EXPECT_TRUE(givingBack.waits());
        isOver = true;
        isOver.notify_all();
    }
    moveAndWake();
    EXPECT_TRUE(other.waitCalls(1));
}

TEST_F(Watcher, HasNoUseForNoHandler) {
    watcher->setRegistryChangeHandler(nullptr);
    watcher->clrRegistryChangeHandler(nullptr);
    moveAndWake();
    EXPECT_TRUE(handler.waitCalls(1));
}

}  // namespace
