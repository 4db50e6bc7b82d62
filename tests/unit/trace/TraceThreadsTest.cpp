// The log of several threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "RegLib/trace/Trace.h"
#include "support/TraceLog.h"

using testing::IsEmpty;
using VQRegLib::g_pregLibTrace;
using vqtest::TraceLine;
using vqtest::TraceLog;

namespace {

constexpr int kThreads = 8;

// Runs a piece in all threads, as nearly at once as can be.
template <typename Piece>
void inThreads(Piece piece) {
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (ready.load() < kThreads) {
                std::this_thread::yield();
            }
            piece(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

std::size_t headersOf(const std::vector<TraceLine>& lines) {
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.isHeader; }));
}

}  // namespace

TEST(TraceThreads, TheFirstLinesOfAllThreadsAreWritten) {
    const TraceLog log(1);
    CRegLibTrace::createInstance();
    inThreads([](int thread) { g_pregLibTrace.load()->trace("thread %d\n", thread); });
    std::vector<std::string> texts = log.texts();
    std::sort(texts.begin(), texts.end());
    std::vector<std::string> expected;
    for (int i = 0; i < kThreads; ++i) {
        expected.push_back("thread " + std::to_string(i));
    }
    EXPECT_EQ(texts, expected);
    const auto lines = log.read().lines;
    EXPECT_EQ(headersOf(lines), 1u);
    EXPECT_TRUE(lines.front().isHeader);
}

TEST(TraceThreads, AllLinesAreWholeAndNoneIsLost) {
    constexpr int kLines = 250;
    const TraceLog log(1);
    CRegLibTrace::createInstance();
    const std::string filling(200, '.');
    inThreads([&](int thread) {
        for (int line = 0; line < kLines; ++line) {
            REGLIB_TRACE(VQRegLib::eTraceChange, "%d %s %d\n", thread, filling.c_str(), line);
        }
    });
    const TraceLog::Content content = log.read();
    EXPECT_THAT(content.malformed, IsEmpty());
    EXPECT_EQ(headersOf(content.lines), 1u);
    std::vector<int> next(kThreads, 0);
    for (const TraceLine& line : content.lines) {
        if (!line.isHeader) {
            const auto thread = static_cast<std::size_t>(line.text.at(0) - '0');
            ASSERT_LT(thread, next.size());
            EXPECT_EQ(line.text, std::to_string(thread) + " " + filling + " " +
                                     std::to_string(next[thread]++));
        }
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

TEST(TraceThreads, EachLineNamesItsThread) {
    const TraceLog log(1);
    CRegLibTrace::createInstance();
    inThreads([](int) { g_pregLibTrace.load()->trace("%d\n", static_cast<int>(gettid())); });
    std::set<int> threads;
    for (const TraceLine& line : log.read().lines) {
        if (!line.isHeader) {
            EXPECT_EQ(line.text, std::to_string(line.tid));
            EXPECT_EQ(line.pid, getpid());
            threads.insert(line.tid);
        }
    }
    EXPECT_EQ(threads.size(), std::size_t{kThreads});
}

TEST(TraceThreads, OneOfThemMakesTheObject) {
    const TraceLog log(1);
    std::atomic<CRegLibTrace*> seen{nullptr};
    std::atomic<int> others{0};
    inThreads([&](int) {
        CRegLibTrace::createInstance();
        if (CRegLibTrace* const trace = g_pregLibTrace.load()) {
            CRegLibTrace* expected = nullptr;
            if (!seen.compare_exchange_strong(expected, trace) && expected != trace) {
                ++others;
            }
        }
    });
    EXPECT_NE(g_pregLibTrace.load(), nullptr);
    EXPECT_EQ(g_pregLibTrace.load(), seen.load());
    EXPECT_EQ(others.load(), 0);
    EXPECT_EQ(CRegLibTrace::m_lFakeMutex.load(), kThreads + 1);
}
