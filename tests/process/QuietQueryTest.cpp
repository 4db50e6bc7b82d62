// What an operation costs in system calls.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Sight.h"
#include "support/SteppedChild.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using vqtest::SteppedChild;
using vqtest::TempStore;

namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::size_t kOfSanitizer = 40;  // it gets memory and looks after its threads as it likes
#else
constexpr std::size_t kOfSanitizer = 0;
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

// Of these, the lock and the look at the objects make 15: fstat, flock and lstat of the lock, fstat,
// lstat and pread of the block, fstat and lstat of the lock before the replacement, fstat and pwrite,
// and then fstat, lstat and pread of the block, fstat and flock at the end. The new text makes 10:
// getrandom for its name, open, fstatfs, fcntl, open, fstat, chmod and close for the mode of the old
// one, write, close. The replacement makes 5: lstat, unlink, link, rename, rename.
TEST_F(QuietOperation, ASetMakesFewSystemCalls) {
    constexpr std::size_t kMost = 30;
    const auto calls = fewestCallsOf([](CRegLib& session, int round) {
        return vqtest::setNumber(session, "A", 2 + static_cast<unsigned long>(round)) == REGLIB_OK
                   ? 0
                   : 1;
    });
    EXPECT_LE(calls.size(), kMost + kOfSanitizer) << listOf(calls);
}
