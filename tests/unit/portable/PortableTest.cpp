#include "portable/Portable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/ForkedChild.h"
#include "support/Wait.h"

using VQRegLib::CPortable;
using vqtest::Common;
using vqtest::ForkedChild;

namespace {

std::string folded(std::string text) {
    CPortable::strlwr(text.data());
    return text;
}

void useTimeZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
}

// The local time, and the same from the C library within the same second.
void sameSecond(CPortable::LocalTime& time, std::tm& expected) {
    EXPECT_TRUE(vqtest::waitUntil([&] {
        timespec before{};
        timespec after{};
        clock_gettime(CLOCK_REALTIME, &before);
        CPortable::GetLocalTime(&time);
        clock_gettime(CLOCK_REALTIME, &after);
        localtime_r(&before.tv_sec, &expected);
        return before.tv_sec == after.tv_sec;
    }));
}

}  // namespace

TEST(LowerCase, FoldsTheLettersOfAsciiOnly) {
    EXPECT_EQ(folded("ABCXYZabcxyz"), "abcxyzabcxyz");
    for (int value = 1; value < 256; ++value) {
        const char byte = static_cast<char>(value);
        const bool isUpper = byte >= 'A' && byte <= 'Z';
        const char expected = isUpper ? static_cast<char>(byte + 32) : byte;
        EXPECT_EQ(folded(std::string(1, byte)), std::string(1, expected)) << value;
        EXPECT_EQ(CPortable::foldedChar(byte), expected) << value;
    }
}

TEST(LowerCase, LooksAtNoLocale) {
    std::setlocale(LC_ALL, "C.UTF-8");
    EXPECT_EQ(folded("\xC3\x84rger \xC4"), "\xC3\x84rger \xC4");
}

TEST(LowerCase, WorksInPlaceUpToTheEnd) {
    char text[] = "ABC\0DEF";
    EXPECT_EQ(CPortable::strlwr(text), text);
    EXPECT_EQ(std::string(text, sizeof text - 1), std::string("abc\0DEF", 7));
    char empty[] = "";
    EXPECT_STREQ(CPortable::strlwr(empty), "");
}

TEST(Numbers, AreWrittenInDecimal) {
    EXPECT_EQ(CPortable::itoa(0), "0");
    EXPECT_EQ(CPortable::itoa(-1), "-1");
    EXPECT_EQ(CPortable::itoa(4711), "4711");
    EXPECT_EQ(CPortable::itoa(LONG_MAX), std::to_string(LONG_MAX));
    EXPECT_EQ(CPortable::itoa(LONG_MIN), std::to_string(LONG_MIN));
}

TEST(Interlocked, ReturnsTheNewValue) {
    std::atomic<std::int32_t> value{0};
    EXPECT_EQ(CPortable::InterlockedIncrement(&value), 1);
    EXPECT_EQ(CPortable::InterlockedIncrement(&value), 2);
    EXPECT_EQ(CPortable::InterlockedDecrement(&value), 1);
    EXPECT_EQ(CPortable::InterlockedDecrement(&value), 0);
    EXPECT_EQ(CPortable::InterlockedDecrement(&value), -1);
}

TEST(Interlocked, WrapsAround) {
    std::atomic<std::int32_t> value{INT32_MAX};
    EXPECT_EQ(CPortable::InterlockedIncrement(&value), INT32_MIN);
    EXPECT_EQ(CPortable::InterlockedDecrement(&value), INT32_MAX);
}

TEST(Interlocked, LosesNoneOfManyThreads) {
    std::atomic<std::int32_t> value{0};
    std::atomic<int> firsts{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10000; ++round) {
                firsts += CPortable::InterlockedIncrement(&value) == 1 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(value.load(), 40000);
    EXPECT_EQ(firsts.load(), 1);
}

TEST(UniqueText, IsFitForAFileName) {
    const std::string hex = "[0-9a-f]";
    EXPECT_THAT(CPortable::newPUUID(), testing::MatchesRegex(hex + "+-" + hex + "+-4" + hex +
                                                             "+-[89ab]" + hex + "+-" + hex + "+"));
    EXPECT_EQ(CPortable::newPUUID().size(), 36u);
}

// They come of random bytes for several at a time, which no two processes may use.
TEST(UniqueText, OfEachChildOfAForkIsAnother) {
    (void)CPortable::newPUUID();
    Common<std::array<std::array<char, 64>, 2>> texts;
    for (std::array<char, 64>& text : *texts) {
        ForkedChild child([&] {
            text[CPortable::newPUUID().copy(text.data(), text.size() - 1)] = '\0';
            return 0;
        });
        EXPECT_EQ(child.wait(), 0);
    }
    EXPECT_STRNE((*texts)[0].data(), (*texts)[1].data());
}

TEST(UniqueText, IsNeverTheSame) {
    std::set<std::string> texts;
    for (int i = 0; i < 20000; ++i) {
        texts.insert(CPortable::newPUUID());
    }
    EXPECT_EQ(texts.size(), 20000u);
}

TEST(UniqueText, DiffersInTheChildOfAFork) {
    struct Text {
        char bytes[64] = {};
    };
    Common<Text> text;
    CPortable::newPUUID();
    ForkedChild child([&] {
        CPortable::newPUUID().copy(text->bytes, sizeof text->bytes - 1);
        return 0;
    });
    ASSERT_EQ(child.wait(), 0);
    EXPECT_EQ(std::string(text->bytes).size(), 36u);
    EXPECT_NE(text->bytes, CPortable::newPUUID());
}

TEST(Ticks, MoveOn) {
    const std::uint64_t start = CPortable::GetTickCountULL();
    EXPECT_NE(start, 0u);
    EXPECT_TRUE(vqtest::waitUntil([&] { return CPortable::GetTickCountULL() > start; }));
}

TEST(Ticks, AreFineEnoughToTellTwoWritesApart) {
    std::set<std::uint64_t> seen;
    for (int i = 0; i < 100; ++i) {
        seen.insert(CPortable::GetTickCountULL());
        usleep(1);
    }
    EXPECT_EQ(seen.size(), 100u);
}

TEST(Ticks, AreTheSameClockInEveryProcess) {
    Common<std::atomic<std::uint64_t>> inChild;
    const std::uint64_t before = CPortable::GetTickCountULL();
    EXPECT_EQ(ForkedChild([&] {
                  *inChild = CPortable::GetTickCountULL();
                  return 0;
              }).wait(),
              0);
    EXPECT_LE(before, inChild->load());
    EXPECT_LE(inChild->load(), CPortable::GetTickCountULL());
}

TEST(LocalTime, HasItsFieldsInTheirOrder) {
    for (const char* zone : {"UTC0", "EAST-13:45", "WEST11:30"}) {
        useTimeZone(zone);
        CPortable::LocalTime time{};
        std::tm expected{};
        sameSecond(time, expected);
        EXPECT_EQ(time.wYear, expected.tm_year + 1900);
        EXPECT_EQ(time.wMonth, expected.tm_mon + 1);
        EXPECT_EQ(time.wDayOfWeek, expected.tm_wday);
        EXPECT_EQ(time.wDay, expected.tm_mday);
        EXPECT_EQ(time.wHour, expected.tm_hour);
        EXPECT_EQ(time.wMinute, expected.tm_min);
        EXPECT_EQ(time.wSecond, expected.tm_sec);
        EXPECT_LT(time.wMilliseconds, 1000);
    }
    EXPECT_EQ(sizeof(CPortable::LocalTime), 16u);
}

TEST(LocalTime, ItsMillisecondsMove) {
    CPortable::LocalTime first{};
    CPortable::GetLocalTime(&first);
    EXPECT_TRUE(vqtest::waitUntil([&] {
        CPortable::LocalTime now{};
        CPortable::GetLocalTime(&now);
        return now.wMilliseconds != first.wMilliseconds && now.wMilliseconds % 10 != 0;
    }));
}

TEST(Identity, IsThatOfTheProcessAndTheThread) {
    EXPECT_EQ(CPortable::GetCurrentProcessId(), getpid());
    EXPECT_EQ(CPortable::GetCurrentThreadId(), syscall(SYS_gettid));
    EXPECT_EQ(
        ForkedChild([] { return CPortable::GetCurrentProcessId() == getpid() ? 0 : 1; }).wait(), 0);
    long other = 0;
    std::thread([&] { other = CPortable::GetCurrentThreadId(); }).join();
    EXPECT_NE(other, 0);
    EXPECT_NE(other, CPortable::GetCurrentThreadId());
}

TEST(Identity, NamesTheExecutable) {
    EXPECT_EQ(CPortable::getExeName(),
              std::filesystem::read_symlink("/proc/self/exe").filename().string());
    EXPECT_FALSE(CPortable::getBuildVersion().empty());
    EXPECT_NE(CPortable::getBuildVersion(), "unknown");
}

TEST(Sleep, LastsAsLongAsItIsAsked) {
    for (const unsigned long milliseconds : {0ul, 1ul, 30ul, 1030ul}) {
        const auto start = std::chrono::steady_clock::now();
        CPortable::Sleep(milliseconds);
        const auto lasted = std::chrono::steady_clock::now() - start;
        EXPECT_GE(lasted, std::chrono::milliseconds(milliseconds));
        EXPECT_LT(lasted, std::chrono::milliseconds(milliseconds) + std::chrono::seconds(20));
    }
}

namespace {

std::string g_aroundFork;

}  // namespace

TEST(PortableFork, HandlersRunInTheOppositeOrderBeforeAndInTheirOrderAfter) {
    ASSERT_TRUE(CPortable::AtFork([] { g_aroundFork += "1"; }, [] { g_aroundFork += "a"; },
                                  [] { g_aroundFork += "x"; }));
    ASSERT_TRUE(CPortable::AtFork([] { g_aroundFork += "2"; }, [] { g_aroundFork += "b"; },
                                  [] { g_aroundFork += "y"; }));
    ASSERT_TRUE(CPortable::AtFork(nullptr, nullptr, nullptr));
    ForkedChild child([] { return g_aroundFork == "21xy" ? 0 : 1; });
    EXPECT_EQ(g_aroundFork, "21ab");
    EXPECT_EQ(child.wait(), 0);
}
