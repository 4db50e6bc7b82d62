#include "support/TraceLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "support/TempStore.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using vqtest::parseTraceLine;
using vqtest::TraceLog;

namespace {

void append(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::app) << text;
}

}  // namespace

TEST(TraceLogParser, TakesALineApart) {
    const auto line = parseTraceLine("23:59:60.007 (   42:123456)  two  spaces ");
    ASSERT_TRUE(line);
    EXPECT_TRUE(line->hasPrefix);
    EXPECT_FALSE(line->isHeader);
    EXPECT_EQ(line->hour, 23);
    EXPECT_EQ(line->minute, 59);
    EXPECT_EQ(line->second, 60);
    EXPECT_EQ(line->millisecond, 7);
    EXPECT_EQ(line->pid, 42);
    EXPECT_EQ(line->tid, 123456);
    EXPECT_EQ(line->text, " two  spaces ");
}

TEST(TraceLogParser, AcceptsAnEmptyText) {
    const auto line = parseTraceLine("00:00:00.000 (12345:12345) ");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->text, "");
}

TEST(TraceLogParser, RefusesWhatIsNotExact) {
    for (const char* text : {
             "",
             "24:00:00.000 (12345:12345) x",
             "00:60:00.000 (12345:12345) x",
             "00:00:61.000 (12345:12345) x",
             "0:00:00.000 (12345:12345) x",
             "00:00:00,000 (12345:12345) x",
             "00:00:00.00 (12345:12345) x",
             "00:00:00.000 (1234:12345) x",
             "00:00:00.000 ( 12345:12345) x",
             "00:00:00.000 (     :12345) x",
             "00:00:00.000 (00042:12345) x",
             "00:00:00.000 (-1234:12345) x",
             "00:00:00.000 (12345 12345) x",
             "00:00:00.000 (12345:12345)x",
             "00:00:00.000 (12345:12345)",
             "00:00:00.000  (12345:12345) x",
             " 00:00:00.000 (12345:12345) x",
             "*** Log file closed",
         }) {
        EXPECT_FALSE(parseTraceLine(text)) << text;
    }
}

TEST(TraceLogParser, RecognisesHeadersWithAndWithoutPrefix) {
    const auto bare = parseTraceLine("*** Log file opened (x) ***");
    ASSERT_TRUE(bare);
    EXPECT_TRUE(bare->isHeader);
    EXPECT_FALSE(bare->hasPrefix);
    const auto prefixed = parseTraceLine("00:00:00.000 (12345:12345) *** Log file opened (x)");
    ASSERT_TRUE(prefixed);
    EXPECT_TRUE(prefixed->isHeader);
    EXPECT_TRUE(prefixed->hasPrefix);
}

TEST(TraceLogParser, ReplacesAddressesButNoCodes) {
    EXPECT_EQ(vqtest::withoutAddresses("a=0x0012ABEF, 0x12345678"), "a=0x@, 0x@");
    EXPECT_EQ(vqtest::withoutAddresses("code 0xC1250FA8"), "code 0xC1250FA8");
    EXPECT_EQ(vqtest::withoutAddresses("0x1234567"), "0x1234567");
    EXPECT_EQ(vqtest::withoutAddresses("0x123456789"), "0x123456789");
    EXPECT_EQ(vqtest::withoutAddresses("0xabcdef01"), "0xabcdef01");
    EXPECT_EQ(vqtest::withoutAddresses("0x"), "0x");
}

TEST(TraceLog, WritesTheLevel) {
    const TraceLog log(0x1F);
    EXPECT_EQ(vqtest::readFile("/etc/Velquist.cfg"),
              "[Velquist/Logging]\n\"RegLibLogging\"=dword:0000001F\n");
    EXPECT_TRUE(fs::is_directory(TraceLog::directory()));
    EXPECT_THAT(log.files(), IsEmpty());
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(TraceLog, LeavesTheDirectoryMissingWhenAsked) {
    const TraceLog log(1, TraceLog::Directory::eLeaveMissing);
    EXPECT_FALSE(fs::exists("/cf"));
    EXPECT_THAT(log.files(), IsEmpty());
}

TEST(TraceLog, NamesTheFileOfTheDay) {
    EXPECT_THAT(TraceLog::path(),
                testing::MatchesRegex("/cf/corvanedata/Logs/RegLibTrace-[0-9][0-9][0-9][0-9]"
                                      "[0-9][0-9]\\.Log"));
}

TEST(TraceLog, ReadsTheDaysInTheirOrder) {
    const TraceLog log(1);
    append(TraceLog::directory() + "RegLibTrace-300102.Log",
           "00:00:00.000 (    2:    3) at 0x12345678\n");
    append(TraceLog::directory() + "RegLibTrace-300101.Log",
           "*** Log file opened (x)\n23:59:59.999 (    1:    1) first\n");
    append(TraceLog::directory() + "Other-300101.Log", "rubbish\n");
    EXPECT_THAT(log.files(), SizeIs(2));
    EXPECT_THAT(log.texts(), ElementsAre("first", "at 0x12345678"));
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace), ElementsAre("first", "at 0x@"));
    EXPECT_THAT(log.texts(TraceLog::Addresses::eKeep, 1), ElementsAre("first"));
    EXPECT_THAT(log.read().lines, SizeIs(3));
}

TEST(TraceLog, ReportsMalformedLines) {
    const TraceLog log(1);
    append(TraceLog::path(), "rubbish\n00:00:00.000 (    1:    1) unfinished");
    EXPECT_THAT(log.read().malformed,
                ElementsAre("rubbish", "00:00:00.000 (    1:    1) unfinished"));
    EXPECT_THROW(log.texts(), std::runtime_error);
}
