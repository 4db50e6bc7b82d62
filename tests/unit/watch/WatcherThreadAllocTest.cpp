// Registering handlers when no thread can be had. In an executable of its own, because it replaces
// pthread_create.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>

#include "support/TraceLog.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using testing::ElementsAre;
using vqtest::Handler;
using vqtest::TraceLog;
using vqtest::waitUntil;

namespace {

std::atomic<unsigned> failures{0};  // bit n: the nth thread from now on cannot be had

class WatcherThreadShortage : public testing::Test {
protected:
    void SetUp() override {
        ::alarm(60);  // something blocks
        file.write("");
        session = vqtest::openSession(file.path());
        vqtest::moveFileTime(file.path());
    }

    // Any thread may open and close stores: the directory is not locked.
    void expectDirectoryIsFree() {
        std::atomic<bool> isDone{false};
        std::thread other([&] {
            vqtest::TempStore otherFile;
            const auto opened = vqtest::openSession(otherFile.path());
            isDone = opened->RootKey() != nullptr;
        });
        EXPECT_TRUE(waitUntil([&] { return isDone.load(); }));
        other.join();
    }

    TraceLog log{1};  // errors are written with any level
    vqtest::TempStore file;
    std::unique_ptr<CRegLib> session;
};

const char* const kWatcherFailed =
    "(Error) CRegWatcherThread::acquireRegWatcherThread (0x@), CreateThread failed";
const char* const kNotifierFailed =
    "(Error) CRegLibImpl::startRegistryChangeNotifierThread (0x@), CreateThread failed";

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
extern "C" int __wrap_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*start)(void*), void* argument) {
    const unsigned now = failures;
    failures = now >> 1;
    return (now & 1) != 0 ? EAGAIN : __real_pthread_create(thread, attributes, start, argument);
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(WatcherThreadShortage, RegistrationEndsAndSaysSo) {
    Handler handler;
    failures = 3;
    session->SetRegistryChangeHandler(&handler);
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace),
                ElementsAre(kNotifierFailed, kWatcherFailed));
    EXPECT_EQ(vqtest::countThreads("FileWatch"), 0);
    EXPECT_EQ(vqtest::countThreads("RegChgNotif"), 0);
    EXPECT_FALSE(vqtest::hasSemaphore());
    expectDirectoryIsFree();
    EXPECT_EQ(vqtest::setNumber(*session, "Number", 1), REGLIB_OK);
    EXPECT_EQ(session->SendRegistryChangeNotification(), REGLIB_OK);
    session->ClrRegistryChangeHandler(&handler);
    session.reset();
    EXPECT_EQ(handler.begun(), 0);
}

TEST_F(WatcherThreadShortage, AWatcherWithoutAThreadStaysSo) {
    Handler handler;
    failures = 2;  // the notifier's thread comes into being
    handler.watch(session);
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace), ElementsAre(kWatcherFailed));
    EXPECT_EQ(vqtest::countThreads("RegChgNotif"), 1);
    handler.watch(session);
    EXPECT_EQ(vqtest::countThreads("FileWatch"), 0);
    EXPECT_EQ(log.texts().size(), 1u);
    session.reset();
    // The next store has a watcher again.
    session = vqtest::openSession(file.path());
    handler.watch(session);
    ASSERT_TRUE(vqtest::waitWatchers(1));
    vqtest::moveFileTime(file.path());
    session->SendRegistryChangeNotification();
    EXPECT_TRUE(handler.waitCalls(1));
}

TEST_F(WatcherThreadShortage, TheNotifierIsTriedAgainAtTheNextRegistration) {
    Handler handler;
    failures = 1;
    handler.watch(session);
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace), ElementsAre(kNotifierFailed));
    ASSERT_TRUE(vqtest::waitWatchers(1));
    EXPECT_FALSE(vqtest::hasSemaphore());
    Handler another;
    another.watch(session);
    EXPECT_TRUE(vqtest::hasSemaphore());
    vqtest::moveFileTime(file.path());
    session->SendRegistryChangeNotification();
    EXPECT_TRUE(handler.waitCalls(1));
    EXPECT_TRUE(another.waitCalls(1));
}
