// A thread that has been cancelled ends at the next system call at which a thread may end, unless that
// is inside the library: there it would leave locks and half a change behind.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>

#include "VQRegLib.h"
#include "portable/Portable.h"
#include "portable/SharedMemory.h"
#include "support/Handlers.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"
#include "support/Wait.h"
#include "vqreg.h"

using namespace VQRegLib;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

// Does `work` on a thread that has been cancelled before it begins. False when that ended it.
template <typename Work>
bool isDone(Work work) {
    std::atomic<bool> done{false};
    std::thread([&] {
        pthread_cancel(pthread_self());
        work();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        done = true;
    }).join();
    return done;
}

class Cancellation : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(session.VQRegCreateKey(nullptr, "Key/Sub", key, 1), REGLIB_OK);
        ASSERT_EQ(set(session, 1), REGLIB_OK);
    }

    static int set(CRegLib& through, unsigned long number) {
        CRegKey opened;
        through.VQRegCreateKey(nullptr, "Key/Sub", opened, 1);
        return through.VQRegSetValue(opened, "Value", number);
    }

    int query() {
        CRegLib::eDataType type = CRegLib::eNone;
        unsigned char data[4] = {};
        unsigned long size = sizeof data;
        const int result = session.VQRegQueryValue(key, "Value", type, data, &size);
        return result < 0 ? result : data[0];
    }

    // Whether other threads can use the store, and what it says then.
    int queryElsewhere() {
        int result = 0;
        std::thread([&] { result = query(); }).join();
        return result;
    }

    // What a writer leaves that died while it replaced the file.
    void markReplacing() const {
        const CPSharedMemory block(store.path(), sizeof(std::uint64_t));
        static_cast<std::atomic<std::uint64_t>*>(block.getAddress())->fetch_or(1);
    }

    TempStore store;
    CRegLib session{store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
    CRegKey key;
};

// The level is read by the first session of the process.
class TracedFromTheBeginning {
    TraceLog log{31};
};

class CancellationTraced : private TracedFromTheBeginning, public Cancellation {
protected:
    CRegKey other;
};

// Another store of this process on the same file, which shares the file as another process does.
class CancellationBesideAWriter : public Cancellation {
protected:
    CRegLib writer{
        (store.directory() + "/./" + store.path().substr(store.directory().size() + 1)).c_str(),
        nullptr, CRegLib::eLocationDefault, nullptr};
};

}  // namespace

TEST_F(Cancellation, EndsAThreadAtItsNextSystemCall) {
    EXPECT_FALSE(isDone([&] { (void)store.read(); }));
}

TEST_F(Cancellation, IsPutOffByAQuery) {
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(query(), 1); }));
}

TEST_F(Cancellation, IsPutOffByTheLookAtTheBlock) {
    const std::uint32_t second = CPortable::GetSecondShown();
    ASSERT_TRUE(vqtest::waitUntil([&] { return CPortable::GetSecondShown() != second; }));
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(query(), 1); }));
}

TEST_F(Cancellation, IsPutOffByChanges) {
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(set(session, 2), REGLIB_OK); }));
    EXPECT_EQ(queryElsewhere(), 2);
    EXPECT_TRUE(isDone([&] { session.VQRegDeleteValue(key, "Value"); }));
    EXPECT_EQ(queryElsewhere(), REGLIB_E_NOT_FOUND);
    EXPECT_TRUE(isDone([&] { session.VQRegDeleteKey(*session.RootKey(), "Key/Sub"); }));
    EXPECT_EQ(queryElsewhere(), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(store.read(), "[Velquist]\n[Velquist/Key]\n");
}

TEST_F(Cancellation, IsPutOffWhileTheFileIsMissing) {
    ASSERT_EQ(std::remove(store.path().c_str()), 0);
    ASSERT_EQ(session.VQRegReload(), REGLIB_OK);
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(query(), 1); }));
    EXPECT_TRUE(store.exists());
    EXPECT_EQ(queryElsewhere(), 1);
}

TEST_F(Cancellation, IsPutOffByTheMendingAfterADeadWriter) {
    markReplacing();
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(query(), 1); }));
    EXPECT_EQ(queryElsewhere(), 1);
}

TEST_F(Cancellation, IsPutOffByTheCallsOfAnUpdate) {
    EXPECT_TRUE(isDone([&] {
        EXPECT_EQ(session.VQRegBeginUpdate(), REGLIB_OK);
        EXPECT_EQ(set(session, 2), REGLIB_OK);
        EXPECT_EQ(session.VQRegEndUpdate(), REGLIB_OK);
    }));
    EXPECT_EQ(queryElsewhere(), 2);
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(session.VQRegReload(), REGLIB_OK); }));
    EXPECT_EQ(queryElsewhere(), 2);
}

TEST_F(Cancellation, IsPutOffByADump) {
    testing::internal::CaptureStdout();
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // each piece of text is a system call
    const bool done = isDone([&] { session.dump(); });
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(done);
    EXPECT_EQ(queryElsewhere(), 1);
}

TEST_F(Cancellation, IsPutOffByRegistrationAndNotification) {
    vqtest::Handler handler;
    EXPECT_TRUE(isDone([&] { session.SetRegistryChangeHandler(&handler); }));
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(session.SendRegistryChangeNotification(), REGLIB_OK); }));
    EXPECT_TRUE(isDone([&] { session.ClrRegistryChangeHandler(&handler); }));
    EXPECT_EQ(queryElsewhere(), 1);
}

TEST_F(Cancellation, IsPutOffByASessionsBeginAndEnd) {
    EXPECT_TRUE(isDone([&] {
        CRegLib other(store.path().c_str(), "Other", CRegLib::eLocationDefault, nullptr);
        EXPECT_NE(other.RootKey(), nullptr);
    }));
    EXPECT_NE(store.read().find("[Other]"), std::string::npos);
}

TEST_F(Cancellation, IsPutOffByAWatchOfTheCInterfaceAndByWhatItTellsOfAFile) {
    const std::string path = store.path();
    EXPECT_TRUE(isDone([&] {
        vqreg_store* const opened = vqreg_open(path.c_str(), nullptr, nullptr);
        vqreg_watch* const watch = vqreg_watch_open(opened, "", nullptr);
        EXPECT_EQ(set(session, 2), REGLIB_OK);
        const vqreg_change* change = nullptr;
        EXPECT_EQ(vqreg_watch_next(watch, &change), 1);
        EXPECT_EQ(vqreg_why(path.c_str(), nullptr, 0), 0u);
        EXPECT_EQ(vqreg_which(path.c_str(), nullptr, 0), path.size());
        vqreg_watch_close(watch);
        vqreg_close(opened);
    }));
    EXPECT_EQ(queryElsewhere(), 2);
}

TEST_F(CancellationTraced, IsPutOffByTraceLines) {
    EXPECT_TRUE(isDone([&] {
        EXPECT_EQ(query(), 1);
        EXPECT_EQ(set(session, 2), REGLIB_OK);
        EXPECT_EQ(session.VQRegCreateKey(nullptr, "Key", other, 0), REGLIB_OK);
        const CRegKey empty;
    }));
    EXPECT_EQ(queryElsewhere(), 2);
}

TEST_F(CancellationBesideAWriter, IsPutOffByTheReadingOfItsChanges) {
    ASSERT_EQ(set(writer, 3), REGLIB_OK);
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(query(), 3); }));
    EXPECT_EQ(queryElsewhere(), 3);
    ASSERT_EQ(set(writer, 4), REGLIB_OK);
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(set(session, 5), REGLIB_OK); }));
    EXPECT_EQ(queryElsewhere(), 5);
}

// The writer is at work, with the lock: the file is read as it is.
TEST_F(CancellationBesideAWriter, IsPutOffByTheReadingWhileItIsAtWork) {
    ASSERT_EQ(writer.VQRegBeginUpdate(), REGLIB_OK);
    markReplacing();
    EXPECT_TRUE(isDone([&] { EXPECT_EQ(query(), 1); }));
    EXPECT_EQ(queryElsewhere(), 1);
    EXPECT_EQ(writer.VQRegEndUpdate(), REGLIB_OK);
}

TEST_F(CancellationBesideAWriter, IsPutOffByTheWaitForItsLock) {
    std::atomic<bool> waits{false};
    ASSERT_EQ(writer.VQRegBeginUpdate(), REGLIB_OK);
    std::thread changer([&] {
        EXPECT_TRUE(isDone([&] {
            waits = true;
            EXPECT_EQ(set(session, 6), REGLIB_OK);
        }));
    });
    EXPECT_TRUE(vqtest::waitUntil([&] { return waits.load(); }));
    EXPECT_EQ(writer.VQRegEndUpdate(), REGLIB_OK);
    changer.join();
    EXPECT_EQ(queryElsewhere(), 6);
}

// The changer waits for the update with the session's lock in its hands, so that the thread with the
// update naps for it, and gives up.
TEST_F(CancellationBesideAWriter, IsPutOffByTheNapsOfAThreadInAnUpdate) {
    std::thread changer;
    EXPECT_TRUE(isDone([&] {
        EXPECT_EQ(writer.VQRegBeginUpdate(), REGLIB_OK);
        changer = std::thread([&] { EXPECT_EQ(set(session, 7), REGLIB_OK); });
        while (session.RootKey()) {
            std::this_thread::yield();
        }
        EXPECT_EQ(writer.VQRegEndUpdate(), REGLIB_OK);
    }));
    changer.join();
    EXPECT_EQ(queryElsewhere(), 7);
}
