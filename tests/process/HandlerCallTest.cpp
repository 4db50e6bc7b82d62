// When change handlers are called, on which thread, and what they may do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using testing::ElementsAre;
using vqtest::Agent;
using vqtest::Handler;
using vqtest::moveFileTime;
using vqtest::numberOf;
using vqtest::openSession;
using vqtest::setNumber;
using vqtest::TempStore;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

using HandlerCall = vqtest::WatchedStore;

std::string ownThreadName() {
    const long id = ::syscall(SYS_gettid);
    std::ifstream in("/proc/self/task/" + std::to_string(id) + "/comm");
    std::string name;
    std::getline(in, name);
    return name;
}

}  // namespace

TEST_F(HandlerCall, TellsOfAnotherProcesssChangeOnTheWatcherThread) {
    long seen = 0;
    std::string thread;
    Handler handler([&] {
        seen = numberOf(*session, "Number");
        thread = ownThreadName();
    });
    watch(handler);
    Agent other(VQREG_AGENT_PATH);
    ASSERT_EQ(other.open(file.path()), REGLIB_OK);
    ASSERT_EQ(other.set(".", "Number", 42), REGLIB_OK);
    ASSERT_EQ(other.send(), REGLIB_OK);
    ASSERT_TRUE(handler.waitCalls(1));
    EXPECT_EQ(seen, 42);
    EXPECT_EQ(thread, "FileWatch");
    EXPECT_EQ(vqtest::countThreads("RegChgNotif"), 1);
    EXPECT_EQ(handler.calls(), 1);
}

TEST_F(HandlerCall, ReachesEveryProcessThatWatchesAndNoOther) {
    std::array<Agent, 3> watchers{Agent(VQREG_AGENT_PATH), Agent(VQREG_AGENT_PATH),
                                  Agent(VQREG_AGENT_PATH)};
    Agent bystander(VQREG_AGENT_PATH);
    for (Agent& agent : watchers) {
        ASSERT_EQ(agent.open(file.path()), REGLIB_OK);
        agent.watch();
        ASSERT_TRUE(waitWatchers(1, agent.pid()));
    }
    ASSERT_EQ(bystander.open(file.path()), REGLIB_OK);
    announceChange();
    for (Agent& agent : watchers) {
        EXPECT_TRUE(waitUntil([&] { return agent.changes() == 1; }));
    }
    EXPECT_EQ(bystander.changes(), 0u);
    EXPECT_EQ(vqtest::countThreads("FileWatch", bystander.pid()), 0);
    EXPECT_EQ(vqtest::countThreads("RegChgNotif", bystander.pid()), 0);

    watchers[1].unwatch();
    announceChange();
    EXPECT_TRUE(waitUntil([&] { return watchers[0].changes() == 2; }));
    EXPECT_TRUE(waitUntil([&] { return watchers[2].changes() == 2; }));
    EXPECT_EQ(watchers[1].changes(), 1u);
    EXPECT_TRUE(waitWatchers(1, watchers[1].pid())) << "the thread stays without handlers";
}

TEST_F(HandlerCall, IsWokenByItsOwnProcesssNotification) {
    long seen = 0;
    Handler handler([&] { seen = numberOf(*session, "Number"); });
    watch(handler);
    ASSERT_EQ(setNumber(*session, "Number", 7), REGLIB_OK);
    announceNothing(1);
    ASSERT_TRUE(handler.waitCalls(1));
    EXPECT_EQ(seen, 7);
}

TEST_F(HandlerCall, CallsNobodyWithoutAChangeOfTheFile) {
    Handler handler;
    watch(handler);
    announceNothing();
    announceChange();
    ASSERT_TRUE(handler.waitCalls(1));
    announceNothing();
    announceChange();
    ASSERT_TRUE(handler.waitCalls(2));
    EXPECT_EQ(handler.calls(), 2);
}

TEST_F(HandlerCall, LooksAtTheModificationSecondOnly) {
    Handler handler;
    watch(handler);
    announceChange();
    ASSERT_TRUE(handler.waitCalls(1));
    // A longer file, another inode and another nanosecond; the second is the same.
    struct stat before {};
    ASSERT_EQ(::stat(file.path().c_str(), &before), 0);
    ASSERT_EQ(setNumber(*session, "Another", 1), REGLIB_OK);
    const struct timespec times[2] = {before.st_mtim, {before.st_mtim.tv_sec, 999'999'999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.path().c_str(), times, 0), 0);
    struct stat after {};
    ASSERT_EQ(::stat(file.path().c_str(), &after), 0);
    ASSERT_NE(after.st_ino, before.st_ino);
    ASSERT_NE(after.st_size, before.st_size);
    announceNothing();
    announceChange();
    ASSERT_TRUE(handler.waitCalls(2));
    EXPECT_EQ(handler.calls(), 2);
}

TEST_F(HandlerCall, AnOlderTimeIsAChangeToo) {
    Handler handler;
    watch(handler);
    vqtest::setFileTime(file.path(), 5);
    announceNothing(1);
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(HandlerCall, AMissingFileCountsAsUnchanged) {
    Handler handler;
    watch(handler);
    const std::string aside = file.path() + ".aside";
    std::filesystem::rename(file.path(), aside);
    announceNothing();
    std::filesystem::rename(aside, file.path());
    announceNothing();
    announceChange();
    ASSERT_TRUE(handler.waitCalls(1));
    EXPECT_EQ(handler.calls(), 1);
}

TEST_F(HandlerCall, AFileThatAppearsLaterIsAChange) {
    const std::string aside = file.path() + ".aside";
    std::filesystem::rename(file.path(), aside);
    Handler handler;
    watch(handler);
    std::filesystem::rename(aside, file.path());
    announceNothing(1);
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(HandlerCall, RegisteredTwiceIsCalledOnceAndGoneWithOneClear) {
    Handler twice;
    Handler other;
    twice.watch(session);
    twice.watch(session);
    watch(other);
    announceChange();
    ASSERT_TRUE(twice.waitCalls(1));
    ASSERT_TRUE(other.waitCalls(1));
    session->ClrRegistryChangeHandler(&twice);
    EXPECT_EQ(twice.calls(), 1);
    announceChange();
    ASSERT_TRUE(other.waitCalls(2));
    session->ClrRegistryChangeHandler(&other);  // waits for the end of the round
    EXPECT_EQ(twice.calls(), 1);
}

TEST_F(HandlerCall, ClearingWhatIsNotRegisteredDoesNothing) {
    Handler handler;
    Handler unknown;
    session->ClrRegistryChangeHandler(&unknown);
    session->ClrRegistryChangeHandler(nullptr);
    EXPECT_EQ(vqtest::countThreads("FileWatch"), 0);
    watch(handler);
    session->ClrRegistryChangeHandler(&unknown);
    session->ClrRegistryChangeHandler(nullptr);
    announceChange();
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(HandlerCall, ANullHandlerStartsNothing) {
    session->SetRegistryChangeHandler(nullptr);
    EXPECT_EQ(vqtest::countThreads("FileWatch"), 0);
    EXPECT_EQ(vqtest::countThreads("RegChgNotif"), 0);
    EXPECT_FALSE(vqtest::hasSemaphore());
}

TEST_F(HandlerCall, ASessionWithoutAStoreDoesNothing) {
    const auto lost = openSession("/tmp");  // a directory
    ASSERT_EQ(lost->RootKey(), nullptr);
    Handler handler;
    lost->SetRegistryChangeHandler(&handler);
    lost->ClrRegistryChangeHandler(&handler);
    EXPECT_EQ(lost->SendRegistryChangeNotification(), 0);
    EXPECT_EQ(vqtest::countThreads("RegChgNotif"), 0);
}

TEST_F(HandlerCall, GoesInAscendingOrderOfAddresses) {
    std::vector<int> order;
    std::vector<std::unique_ptr<Handler>> handlers;
    for (int i = 0; i < 8; ++i) {
        handlers.push_back(std::make_unique<Handler>([&order, i] { order.push_back(i); }));
    }
    for (const auto& handler : handlers) {
        handler->watch(session);
    }
    ASSERT_TRUE(waitWatchers(1));
    announceChange();
    for (const auto& handler : handlers) {
        ASSERT_TRUE(handler->waitCalls(1));
    }
    ASSERT_EQ(order.size(), handlers.size());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end(), [&](int a, int b) {
        return std::less<>()(handlers[static_cast<std::size_t>(a)].get(),
                             handlers[static_cast<std::size_t>(b)].get());
    }));
}

TEST_F(HandlerCall, EachStoreWatchesItsOwnFile) {
    TempStore otherFile;
    const auto other = openSession(otherFile.path());
    const auto sameFile = openSession(file.directory() + "/./store.cfg");
    std::atomic<pid_t> threads[3] = {};
    Handler handler([&] { threads[0] = ::gettid(); });
    Handler ofOther([&] { threads[1] = ::gettid(); });
    Handler ofSameFile([&] { threads[2] = ::gettid(); });
    ofOther.watch(other);
    ofSameFile.watch(sameFile);
    watch(handler, 3);
    announceChange();
    ASSERT_TRUE(handler.waitCalls(1));
    ASSERT_TRUE(ofSameFile.waitCalls(1));
    moveFileTime(otherFile.path());
    announceNothing(1);
    ASSERT_TRUE(ofOther.waitCalls(1));
    EXPECT_EQ(ofOther.calls(), 1);
    EXPECT_EQ(handler.calls(), 1);
    EXPECT_TRUE(threads[0] != threads[1] && threads[0] != threads[2] && threads[1] != threads[2]);
    EXPECT_EQ(vqtest::countThreads("FileWatch"), 3);
    EXPECT_EQ(vqtest::countThreads("RegChgNotif"), 1);
}

TEST_F(HandlerCall, MayRegisterClearSendAndOpenFromInside) {
    Handler later;
    TempStore otherFile;
    std::atomic<bool> worked{false};
    Handler* self = nullptr;
    Handler handler([&] {
        const auto inner = openSession(otherFile.path());
        const auto again = openSession(file.path());
        const bool isSet = setNumber(*inner, "Inside", 1) == REGLIB_OK &&
                           setNumber(*session, "Number", 5) == REGLIB_OK &&
                           numberOf(*again, "Number") == 5;
        later.watch(session);
        again->ClrRegistryChangeHandler(self);
        worked = isSet && session->SendRegistryChangeNotification() == REGLIB_OK;
    });
    self = &handler;
    watch(handler);
    announceChange();
    ASSERT_TRUE(handler.waitCalls(1));
    EXPECT_TRUE(worked);
    // The change from inside is seen at the notification from inside.
    ASSERT_TRUE(later.waitCalls(1));
    announceChange();
    ASSERT_TRUE(later.waitCalls(2));
    EXPECT_EQ(handler.calls(), 1);
}

TEST_F(HandlerCall, ClearingFromAnotherThreadWaitsForTheCall) {
    std::atomic<bool> mayReturn{false};
    Handler handler([&] { waitUntil([&] { return mayReturn.load(); }); });
    watch(handler);
    announceChange();
    ASSERT_TRUE(handler.waitBegun(1));
    std::atomic<bool> isCleared{false};
    std::atomic<bool> wasOver{false};
    std::thread clearing([&] {
        session->ClrRegistryChangeHandler(&handler);
        wasOver = handler.calls() == 1;
        isCleared = true;
    });
    EXPECT_FALSE(waitUntil([&] { return isCleared.load(); }, std::chrono::milliseconds(50)));
    mayReturn = true;
    EXPECT_TRUE(waitUntil([&] { return isCleared.load(); }));
    clearing.join();
    EXPECT_TRUE(wasOver);
}

TEST_F(HandlerCall, AClearedHandlerOfTheSameRoundIsNotCalled) {
    std::array<std::unique_ptr<Handler>, 2> handlers;
    std::atomic<int> calls{0};
    for (std::size_t i = 0; i < 2; ++i) {
        handlers[i] = std::make_unique<Handler>([&, i] {
            ++calls;
            session->ClrRegistryChangeHandler(handlers[1 - i].get());
        });
    }
    handlers[0]->watch(session);
    watch(*handlers[1]);
    announceChange();
    ASSERT_TRUE(waitUntil([&] { return handlers[0]->calls() + handlers[1]->calls() == 1; }));
    announceChange();
    ASSERT_TRUE(waitUntil([&] { return handlers[0]->calls() + handlers[1]->calls() == 2; }));
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(std::max(handlers[0]->calls(), handlers[1]->calls()), 2);
}

TEST_F(HandlerCall, AllSignalsAreBlockedOnTheThreadsOfTheLibrary) {
    Handler handler;
    watch(handler);
    // The two real-time signals 32 and 33 belong to the C library; SIGKILL and SIGSTOP cannot be.
    constexpr std::uint64_t kAlways =
        (1ull << (SIGKILL - 1)) | (1ull << (SIGSTOP - 1)) | (1ull << 31) | (1ull << 32);
    int seen = 0;
    for (const vqtest::ThreadInfo& thread : vqtest::threads()) {
        if (thread.name == "FileWatch" || thread.name == "RegChgNotif") {
            EXPECT_EQ(thread.blocked | kAlways, ~0ull) << thread.name;
            ++seen;
        }
    }
    EXPECT_EQ(seen, 2);
}
