// What registering handlers, changes and the end of a watched store write to the trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "RegLib/instance/Directory.h"
#include "RegLib/instance/Notifier.h"
#include "support/TraceLog.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::IsEmpty;
using vqtest::Handler;
using vqtest::TraceLog;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

const char* const kStarting = "CRegWatcherThread::FileWatcherThreadFunc (0x@) - starting";
const char* const kNotifierStarting = "CRegLibImpl::RegistryChangeNotifierThread (0x@) - starting";

// A watched store, and the lines that one step has written.
class Traced {
public:
    explicit Traced(std::uint32_t level) : m_log(level) {
        session = vqtest::openSession(file.path());
        vqtest::moveFileTime(file.path());
        (void)newLines();
    }

    std::vector<std::string> newLines(
        TraceLog::Addresses addresses = TraceLog::Addresses::eReplace) {
        std::vector<std::string> lines = m_log.texts(addresses);
        const auto old = static_cast<std::ptrdiff_t>(m_seen);
        m_seen = lines.size();
        return {lines.begin() + old, lines.end()};
    }

    // The lines of a registration; the one of the new thread, which may come anywhere behind the
    // watcher's construction, is moved to the end.
    std::vector<std::string> watch(Handler* handler) {
        if (handler) {
            handler->watch(session);
        } else {
            session->SetRegistryChangeHandler(nullptr);
        }
        EXPECT_TRUE(waitWatchers(handler ? 1 : 0));
        std::vector<std::string> lines = newLines();
        const auto started = std::find(lines.begin(), lines.end(), kStarting);
        if (started != lines.end()) {
            EXPECT_TRUE(std::any_of(lines.begin(), started, [](const std::string& line) {
                return line.starts_with("CRegWatcherThread::CRegWatcherThread");
            }));
            std::rotate(started, started + 1, lines.end());
        }
        return lines;
    }

    std::vector<std::string> clear(Handler* handler) {
        session->ClrRegistryChangeHandler(handler);
        return newLines();
    }

    std::string construction() const {
        return "CRegWatcherThread::CRegWatcherThread (0x@) - mode 2, name " + file.path() +
               ", cli 0";
    }

    vqtest::TempStore file;
    std::unique_ptr<CRegLib> session;

private:
    TraceLog m_log;
    std::size_t m_seen = 0;
};

}  // namespace

TEST(WatcherTrace, ARegistrationWithLifeAndFlow) {
    Traced traced(12);
    Handler handler;
    Handler another;
    EXPECT_THAT(traced.watch(&handler),
                ElementsAre("CRegLibImplFile::SetRegistryChangeHandler", kNotifierStarting,
                            traced.construction(), "CRegWatcherThread::setRegistryChangeHandler",
                            "<<<CRegLibImplFile::SetRegistryChangeHandler", kStarting));
    EXPECT_THAT(traced.watch(&another),
                ElementsAre("CRegLibImplFile::SetRegistryChangeHandler",
                            "CRegWatcherThread::setRegistryChangeHandler",
                            "<<<CRegLibImplFile::SetRegistryChangeHandler"));
}

TEST(WatcherTrace, ARegistrationWithLifeOnly) {
    Traced traced(4);
    Handler handler;
    EXPECT_THAT(traced.watch(&handler),
                ElementsAre(kNotifierStarting, traced.construction(), kStarting));
}

TEST(WatcherTrace, ARegistrationWithFlowOnly) {
    Traced traced(8);
    Handler handler;
    EXPECT_THAT(traced.watch(&handler),
                ElementsAre("CRegLibImplFile::SetRegistryChangeHandler",
                            "CRegWatcherThread::setRegistryChangeHandler",
                            "<<<CRegLibImplFile::SetRegistryChangeHandler"));
}

TEST(WatcherTrace, NothingWithTheOtherBits) {
    Traced traced(1 | 16);
    Handler handler;
    EXPECT_THAT(traced.watch(&handler), IsEmpty());
    vqtest::moveFileTime(traced.file.path());
    traced.session->SendRegistryChangeNotification();
    EXPECT_TRUE(handler.waitCalls(1));
    traced.session.reset();
    EXPECT_THAT(traced.newLines(), IsEmpty());
}

TEST(WatcherTrace, Clearing) {
    Traced traced(12);
    Handler handler;
    EXPECT_THAT(traced.clear(&handler),
                ElementsAre("CRegLibImplFile::ClrRegistryChangeHandler",
                            "<<<CRegLibImplFile::ClrRegistryChangeHandler"));
    traced.watch(&handler);
    EXPECT_THAT(traced.clear(&handler),
                ElementsAre("CRegLibImplFile::ClrRegistryChangeHandler",
                            "CRegWatcherThread::clrRegistryChangeHandler",
                            "<<<CRegLibImplFile::ClrRegistryChangeHandler"));
}

TEST(WatcherTrace, ANullHandler) {
    Traced traced(12);
    EXPECT_THAT(traced.watch(nullptr), ElementsAre("CRegLibImplFile::SetRegistryChangeHandler",
                                                   "<<<CRegLibImplFile::SetRegistryChangeHandler"));
    EXPECT_THAT(traced.clear(nullptr), ElementsAre("CRegLibImplFile::ClrRegistryChangeHandler",
                                                   "<<<CRegLibImplFile::ClrRegistryChangeHandler"));
    Handler handler;
    traced.watch(&handler);
    EXPECT_THAT(traced.clear(nullptr), ElementsAre("CRegLibImplFile::ClrRegistryChangeHandler",
                                                   "<<<CRegLibImplFile::ClrRegistryChangeHandler"));
}

TEST(WatcherTrace, AChangeIsShownWithFlow) {
    Traced traced(8);
    Handler handler;
    traced.watch(&handler);
    vqtest::moveFileTime(traced.file.path());
    traced.session->SendRegistryChangeNotification();
    ASSERT_TRUE(handler.waitCalls(1));
    EXPECT_THAT(traced.newLines(),
                ElementsAre("CRegWatcherThread::fileWatcherThreadFunc (0x@) - got file change"));
}

TEST(WatcherTrace, AChangeIsNotShownWithLife) {
    Traced traced(4);
    Handler handler;
    traced.watch(&handler);
    vqtest::moveFileTime(traced.file.path());
    traced.session->SendRegistryChangeNotification();
    ASSERT_TRUE(handler.waitCalls(1));
    EXPECT_THAT(traced.newLines(), IsEmpty());
}

TEST(WatcherTrace, TheEndOfAStoreWithLifeAndFlow) {
    Traced traced(12);
    Handler handler;
    traced.watch(&handler);
    traced.session.reset();
    EXPECT_THAT(
        traced.newLines(),
        ElementsAre("CRegLibImplFile::~CRegLibImplFile (0x@)",
                    "CRegWatcherThread::~CRegWatcherThread (0x@)",
                    "CRegWatcherThread::fileWatcherThreadFunc (0x@) - stopping",
                    "CRegKeyImplFile::~CRegKeyImplFile 0x@", "CRegKeyImpl::~CRegKeyImpl 0x@",
                    "<<<CRegLibImplFile::~CRegLibImplFile (0x@)",
                    "CRegLibImpl::~CRegLibImpl (0x@)"));
}

TEST(WatcherTrace, TheEndOfAStoreWithLifeOnly) {
    Traced traced(4);
    Handler handler;
    traced.watch(&handler);
    traced.session.reset();
    EXPECT_THAT(traced.newLines(),
                ElementsAre("CRegWatcherThread::~CRegWatcherThread (0x@)",
                            "CRegWatcherThread::fileWatcherThreadFunc (0x@) - stopping",
                            "CRegLibImpl::~CRegLibImpl (0x@)"));
}

TEST(WatcherTrace, AHandlerThatClosesItsStoreLeavesTheRestToTheThread) {
    Traced traced(12);
    Handler handler([&] { traced.session.reset(); });
    traced.watch(&handler);
    vqtest::moveFileTime(traced.file.path());
    releaseNotificationSemaphores();
    ASSERT_TRUE(handler.waitCalls(1));
    ASSERT_TRUE(waitUntil([] { return vqtest::countThreads("FileWatch") == 0; }));
    EXPECT_THAT(
        traced.newLines(),
        ElementsAre("CRegWatcherThread::fileWatcherThreadFunc (0x@) - got file change",
                    "CRegLibImplFile::~CRegLibImplFile (0x@)",
                    "CRegKeyImplFile::~CRegKeyImplFile 0x@", "CRegKeyImpl::~CRegKeyImpl 0x@",
                    "<<<CRegLibImplFile::~CRegLibImplFile (0x@)", "CRegLibImpl::~CRegLibImpl (0x@)",
                    "CRegWatcherThread::fileWatcherThreadFunc (0x@) - stopping",
                    "CRegWatcherThread::~CRegWatcherThread (0x@)"));
}

TEST(WatcherTrace, ExceptionsOfHandlersAreToldAndTheOtherHandlersAreCalled) {
    Traced traced(1);
    std::atomic<int> round{0};
    const auto throwing = [&] {
        switch (round.load()) {
            case 1:
                throw std::runtime_error("no such sensor");
            case 2:
                throw VQException(REGLIB_E_FAIL, "own", 7);
            default:
                throw 3;
        }
    };
    Handler handlers[] = {Handler(throwing), Handler(), Handler(throwing)};
    for (Handler& handler : handlers) {
        handler.watch(traced.session);
    }
    ASSERT_TRUE(waitWatchers(1));
    const std::string where = "(Error) CRegWatcherThread::fileWatcherThreadFunc (0x@), exception ";
    for (const std::string what : {"no such sensor", "0xC1250FA0, own.7", "of unknown kind"}) {
        ++round;
        vqtest::moveFileTime(traced.file.path());
        traced.session->SendRegistryChangeNotification();
        EXPECT_TRUE(handlers[1].waitCalls(round));
        EXPECT_TRUE(handlers[2].waitBegun(round));
        EXPECT_TRUE(waitWatchers(1)) << "the round is over";
        EXPECT_THAT(traced.newLines(), ElementsAre(where + what, where + what));
    }
    EXPECT_EQ(handlers[0].begun(), 3);
    traced.session.reset();
    EXPECT_EQ(vqtest::countThreads("FileWatch"), 0);
}

TEST(WatcherTrace, AHandlerThatEndsItsThreadDoesNotHoldUpTheStore) {
    Traced traced(1);
    Handler handler([] { pthread_exit(nullptr); });
    traced.watch(&handler);
    vqtest::moveFileTime(traced.file.path());
    traced.session->SendRegistryChangeNotification();
    ASSERT_TRUE(waitUntil([] { return vqtest::countThreads("FileWatch") == 0; }));
    EXPECT_EQ(handler.begun(), 1);
    traced.session->ClrRegistryChangeHandler(&handler);
    traced.session.reset();
    EXPECT_THAT(traced.newLines(), IsEmpty());
}

TEST(WatcherTrace, AWatcherHasOneAddress) {
    Traced traced(4);
    Handler handler;
    handler.watch(traced.session);
    ASSERT_TRUE(waitWatchers(1));
    traced.session.reset();
    std::vector<std::string> addresses;
    for (const std::string& line : traced.newLines(TraceLog::Addresses::eKeep)) {
        if (line.starts_with("CRegWatcherThread::")) {
            addresses.push_back(line.substr(line.find('('), 12));
        }
    }
    ASSERT_EQ(addresses.size(), 4u);
    EXPECT_EQ(std::count(addresses.begin(), addresses.end(), addresses.front()), 4);
}

TEST(NotifierTrace, TheNotifierNamesTheDirectoryWhenItStarts) {
    Traced traced(4);
    Handler handler;
    handler.watch(traced.session);
    char expected[80];
    std::snprintf(expected, sizeof expected,
                  "CRegLibImpl::RegistryChangeNotifierThread (0x%08X) - starting",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(g_preglibImplDirectory)));
    EXPECT_THAT(traced.newLines(TraceLog::Addresses::eKeep), testing::Contains(expected));
}

TEST(NotifierTrace, StoppingIsTracedWithLife) {
    Traced traced(4);
    Handler handler;
    traced.watch(&handler);
    get_reglibImplDirectory()->StopRegistryChangeNotifierThread();
    EXPECT_THAT(traced.newLines(),
                ElementsAre("CRegLibImpl::RegistryChangeNotifierThread (0x@) - stopping"));
}

TEST(NotifierTrace, StoppingIsNotTracedWithFlow) {
    Traced traced(8);
    Handler handler;
    traced.watch(&handler);
    get_reglibImplDirectory()->StopRegistryChangeNotifierThread();
    EXPECT_THAT(traced.newLines(), IsEmpty());
}

TEST(NotifierTrace, SendingWritesNothing) {
    Traced traced(13);
    traced.session->SendRegistryChangeNotification();
    EXPECT_THAT(traced.newLines(), IsEmpty());
}
