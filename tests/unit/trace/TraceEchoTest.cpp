// The copy of the lines on standard output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "RegLib/trace/Echo.h"
#include "RegLib/trace/Trace.h"
#include "support/TraceLog.h"

using testing::ElementsAre;
using testing::EndsWith;
using VQRegLib::g_pregLibTrace;
using vqtest::TraceLog;

namespace {

std::string echoed(const char* line) {
    testing::internal::CaptureStdout();
    VQRegLib::echoTraceLine(line);
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// What the trace object prints, after the prefix, for a line that shows a text.
std::string printedFor(const char* text) {
    testing::internal::CaptureStdout();
    g_pregLibTrace.load()->trace("%s\n", text);
    std::fflush(stdout);
    const std::string output = testing::internal::GetCapturedStdout();
    const std::size_t prefix = output.find(") ");
    return prefix == std::string::npos ? output : output.substr(prefix + 2);
}

}  // namespace

TEST(Echo, PrintsALineAsItIs) {
    EXPECT_EQ(echoed("plain text\n"), "plain text\n");
    EXPECT_EQ(echoed(""), "");
    EXPECT_EQ(echoed("no line end"), "no line end");
}

TEST(Echo, InterpretsPercents) {
    EXPECT_EQ(echoed("100%%\n"), "100%\n");
    EXPECT_EQ(echoed("%%%%d\n"), "%%d\n");
    EXPECT_EQ(echoed("<%d>\n"), "<0>\n");
    EXPECT_EQ(echoed("<%5d|%-3u|%04x|0x%08X>\n"), "<    0|0  |0000|0x00000000>\n");
    EXPECT_EQ(echoed("<%s>\n"), "<(null)>\n");
    EXPECT_EQ(echoed("<%d%%>\n"), "<0%>\n");
}

TEST(Echo, PrintsWhatIsNotSafeAsItIs) {
    for (const char* line : {
             "%n\n",     "%d %n\n",   "%hhn\n",
             "%ln\n",                          // would write to memory
             "%f\n",     "%Lf\n",     "%a\n",  // no floating number is there
             "%ls\n",    "%S\n",      "%lc\n",
             "%lld\n",  // nor other sizes
             "%*d\n",    "%.*s\n",    "%1$s\n",
             "%2$n\n",                                   // nor numbers that choose
             "%9999d\n", "%.9999d\n", "%2147483648d\n",  // needs memory, or fails
             "%\n",      "100%",      "%5",
             "%-",       "%.",        "%y\n",
             "%%%\n",
         }) {
        EXPECT_EQ(echoed(line), line);
    }
}

TEST(Echo, PrintsAtMostEightConversions) {
    EXPECT_EQ(echoed("%d%d%d%d%d%d%d%d\n"), "00000000\n");
    EXPECT_EQ(echoed("%d%d%d%d%d%d%d%d%d\n"), "%d%d%d%d%d%d%d%d%d\n");
    EXPECT_EQ(echoed("%%%d%d%d%d%d%d%d%d%%\n"), "%00000000%\n");
}

TEST(TraceEcho, IsTheWholeLineWithItsPrefix) {
    const TraceLog log(2);
    CRegLibTrace::createInstance();
    testing::internal::CaptureStdout();
    REGLIB_TRACE(VQRegLib::eTraceAlways, "(Error) number %d\n", 5);
    REGLIB_TRACE(VQRegLib::eTraceChange, "change\n");
    std::fflush(stdout);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_THAT(log.texts(), ElementsAre("(Error) number 5"));
    const auto lines = log.read().lines;
    ASSERT_EQ(lines.size(), 2u);
    ASSERT_THAT(output, EndsWith("(Error) number 5\n"));
    const auto printed = vqtest::parseTraceLine(output.substr(0, output.size() - 1));
    ASSERT_TRUE(printed);
    EXPECT_TRUE(printed->hasPrefix);
    EXPECT_EQ(printed->text, "(Error) number 5");
    EXPECT_EQ(printed->millisecond, lines[1].millisecond);
    EXPECT_EQ(printed->tid, lines[1].tid);
}

TEST(TraceEcho, IsOffWithoutItsBit) {
    const TraceLog log(29);
    CRegLibTrace::createInstance();
    EXPECT_EQ(printedFor("(Error) x"), "");
    EXPECT_THAT(log.texts(), ElementsAre("(Error) x"));
}

TEST(TraceEcho, InterpretsATextAgainButTheFileDoesNot) {
    const TraceLog log(3);
    CRegLibTrace::createInstance();
    EXPECT_EQ(printedFor("100%%"), "100%\n");
    EXPECT_EQ(printedFor("<%d>"), "<0>\n");
    EXPECT_EQ(printedFor("<%s>"), "<(null)>\n");
    EXPECT_EQ(printedFor("<%n>"), "<%n>\n");
    EXPECT_EQ(printedFor("<%s%s%s%s%s%s%s%s%s%s%n>"), "<%s%s%s%s%s%s%s%s%s%s%n>\n");
    EXPECT_THAT(log.texts(),
                ElementsAre("100%%", "<%d>", "<%s>", "<%n>", "<%s%s%s%s%s%s%s%s%s%s%n>"));
}

TEST(TraceEcho, IsNotPrintedWhenTheFileCannotBeOpened) {
    const TraceLog log(3, TraceLog::Directory::eLeaveMissing);
    CRegLibTrace::createInstance();
    EXPECT_EQ(printedFor("x"), "");
}
