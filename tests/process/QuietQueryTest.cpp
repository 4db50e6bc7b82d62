// What an operation costs in system calls.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Handlers.h"
#include "support/Sight.h"
#include "support/SteppedChild.h"
#include "support/TempStore.h"
#include "support/Wait.h"

using namespace VQRegLib;
using vqtest::SteppedChild;
using vqtest::TempStore;

namespace {

#ifdef __SANITIZE_THREAD__
constexpr std::size_t kOfSanitizer = 40;  // it gets memory and looks after its threads as it likes
#else
constexpr std::size_t kOfSanitizer = 0;
#endif

#if defined(__alpha__)
constexpr long kFchmodat2 = 562;
#else
constexpr long kFchmodat2 = 452;
#endif
constexpr int kRounds = 20;
constexpr int kQueries = 1000;
constexpr std::uint64_t kMark = 0x5EED;

// A call that nobody else makes, and that changes nothing.
void mark() {
    ::syscall(SYS_getsid, kMark);
}

class QuietOperation : public testing::Test {
protected:
    void SetUp() override {
        if (!SteppedChild::isPermitted()) {
            GTEST_SKIP() << "a process may not trace its child here";
        }
        vqtest::writeStore(store, {1, 1, false});
    }

    // The system calls between each two marks of a child: their numbers.
    template <typename Round>
    std::vector<std::vector<std::uint64_t>> callsOf(Round round) {
        SteppedChild child([&](auto begin) {
            CRegLib& session = vqtest::sessionOfChild(store.path());
            int failures = round(session, 0);
            begin();
            for (int i = 1; i <= kRounds; ++i) {
                mark();
                failures += round(session, i);
            }
            mark();
            return failures == 0 ? 0 : 1;
        });
        std::vector<std::vector<std::uint64_t>> rounds;
        while (child.step()) {
            std::uint64_t number = 0;
            std::uint64_t argument = 0;
            if (!child.isEntering(number, argument)) {
                continue;
            }
            if (number == SYS_getsid && argument == kMark) {
                rounds.emplace_back();
            } else if (!rounds.empty()) {
                rounds.back().push_back(number);
            }
        }
        EXPECT_EQ(child.status(), 0);
        EXPECT_EQ(rounds.size(), kRounds + 1u);
        rounds.pop_back();  // what follows the last mark
        return rounds;
    }

    template <typename Round>
    std::vector<std::uint64_t> fewestCallsOf(Round round) {
        const auto rounds = callsOf(round);
        return *std::min_element(rounds.begin(), rounds.end(),
                                 [](const auto& a, const auto& b) { return a.size() < b.size(); });
    }

    bool waitUntilObjectsAreOld() const {
        return vqtest::waitUntil([this] {
            bool isOld = true;
            for (const std::string& name : store.sharedObjects()) {
                const auto written = std::filesystem::last_write_time("/dev/shm/" + name);
                isOld = isOld && std::filesystem::file_time_type::clock::now() - written >
                                     std::chrono::milliseconds(200);
            }
            return isOld;
        });
    }

    static int query(CRegLib& session) { return vqtest::numberOf(session, "A") == 1 ? 0 : 1; }

    TempStore store;
};

std::string listOf(const std::vector<std::uint64_t>& calls) {
    std::string text = "system calls";
    for (const std::uint64_t call : calls) {
        text += ' ' + std::to_string(call);
    }
    return text;
}

}  // namespace

// Once a second the library looks whether its objects still are what others use; so the quietest of
// several rounds counts.
TEST_F(QuietOperation, AThousandQueriesOfAnUnchangedStoreMakeNoSystemCall) {
    const auto calls = fewestCallsOf([](CRegLib& session, int) {
        int failures = 0;
        for (int i = 0; i < kQueries; ++i) {
            failures += query(session);
        }
        return failures;
    });
    EXPECT_TRUE(calls.empty()) << listOf(calls);
}

TEST_F(QuietOperation, ReadingEverythingElseOfAnUnchangedStoreMakesNoSystemCall) {
    const auto calls = fewestCallsOf([](CRegLib& session, int) {
        vqtest::lookThrough(session);
        return vqtest::setNumber(session, "A", 1) == REGLIB_OK ? 0 : 1;  // the number that it has
    });
    EXPECT_LE(calls.size(), kOfSanitizer) << listOf(calls);
}

// Of these, the lock and the look at the objects make 9: fstat, flock and pread of the lock, fstat of
// the block, fstat and pwrite of the lock before the replacement, fstat of the block, and fstat and
// flock at the end. The new text makes 6: open, fstatfs, lstat and fchmodat2 for the mode of the old one, write,
// close; and sync_file_range, so that a power cut leaves no text of zeroes. The replacement makes 5: a look
// at the lock behind the mark, unlink, link, rename, rename. For the rest see SharedFile.h and
// SharedMemory.cpp: what has only just been made is looked at more closely.
TEST_F(QuietOperation, ASetMakesFewSystemCalls) {
    constexpr std::size_t kMost = 21;
    constexpr std::size_t kOfOldKernel = 4;  // open, fstat, chmod and close for the mode
    const bool isOld = ::syscall(kFchmodat2, -1, "", 0, 0) != 0 && errno == ENOSYS;
    const auto calls = fewestCallsOf([this](CRegLib& session, int round) {
        if (round == 0 && !waitUntilObjectsAreOld()) {
            return 1;
        }
        return vqtest::setNumber(session, "A", 2 + static_cast<unsigned long>(round)) == REGLIB_OK
                   ? 0
                   : 1;
    });
    EXPECT_LE(calls.size(), kMost + (isOld ? kOfOldKernel : 0) + kOfSanitizer) << listOf(calls);
}

// A look at the directory of the semaphores, and for each of them a call that releases it, and one that
// asks whether its process lives. The handler's process is the test's.
TEST_F(QuietOperation, ANotificationOfTheSameProcessesMakesFewSystemCalls) {
    constexpr std::size_t kMost = 3;
    const auto session = vqtest::openSession(store.path());
    vqtest::Handler handler;
    session->SetRegistryChangeHandler(&handler);
    const auto calls = fewestCallsOf([this](CRegLib& sender, int round) {
        if (round == 0 && !waitUntilObjectsAreOld()) {
            return 1;
        }
        return sender.SendRegistryChangeNotification() == REGLIB_OK ? 0 : 1;
    });
    EXPECT_LE(calls.size(), kMost + kOfSanitizer) << listOf(calls);
    session->ClrRegistryChangeHandler(&handler);
}

// With the file's directory resolved once, which takes a look at each level; the namespace of the block
// is not looked up where the block is found. One look tells what file system the store is on.
TEST_F(QuietOperation, OpeningAndClosingASessionMakesFewSystemCalls) {
    constexpr std::size_t kMost = 27;
    const auto other = vqtest::openSession(store.path());  // for the block to be there
    const auto calls = fewestCallsOf([this](CRegLib&, int) {
        const auto session = vqtest::openSession(store.path(), "Another");
        return session->RootKey() ? 0 : 1;
    });
    EXPECT_LE(calls.size(), kMost + kOfSanitizer) << listOf(calls);
}
