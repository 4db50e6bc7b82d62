// The copy of the lines on standard output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
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

TEST(Echo, PrintsEachConversionAsPrintfDoes) {
    // Zeros enough for whatever these read.
    const auto printed = [](const char* format, auto zero) {
        std::string text(20000, '\0');
        errno = ENOENT;  // for "%m"
        const int size = std::snprintf(text.data(), text.size(), format, zero);
        text.resize(static_cast<std::size_t>(size));
        return text;
    };
    const auto echoedWithError = [](const char* line) {
        testing::internal::CaptureStdout();
        errno = ENOENT;
        VQRegLib::echoTraceLine(line);
        std::fflush(stdout);
        return testing::internal::GetCapturedStdout();
    };
    for (const char* line :
         {"<%d|%%>\n",   "<%+.3i>\n", "<% lld>",  "<%-9hhu|", "<%#llx>", "<%09zd>", "<%jd>",
          "<%td>",       "<%'d>",     "<%lu>\n",  "<%.0d>\n", "<%p>",    "<%c>",    "<%lc>",
          "<%5c>",       "<%m>\n",    "<%40m>\n", "<%.5m>",   "<%5%>\n", "<%-%>",   "<%9999d>\n",
          "<%.9999d>\n", "<%1$d>",    "<%qd>",    "<%Ld>",    "<%X>",    "<%o>"}) {
        EXPECT_EQ(echoedWithError(line), printed(line, 0LL)) << line;
    }
    for (const char* line :
         {"<%f>\n", "<%10.2e>\n", "<%G>", "<%a>", "<%+F>", "<%lf>", "<%08.3f>"}) {
        EXPECT_EQ(echoedWithError(line), printed(line, 0.0)) << line;
    }
    for (const char* line : {"<%Lf>\n", "<%12LE>\n"}) {
        EXPECT_EQ(echoedWithError(line), printed(line, 0.0L)) << line;
    }
    const char* const none = nullptr;
    for (const char* line : {"<%s>\n", "<%9s>", "<%-9s|", "<%.3s>", "<%ls>\n", "<%S>"}) {
        EXPECT_EQ(echoedWithError(line), printed(line, none)) << line;
    }
}

TEST(Echo, GivesAZeroToAWidthThatIsAnArgument) {
    EXPECT_EQ(echoed("<%*d>\n"), "<0>\n");
    EXPECT_EQ(echoed("<%.*s>\n"), "<>\n");
    EXPECT_EQ(echoed("<%-*.*f>\n"), "<0>\n");
    EXPECT_EQ(echoed("<%1$*2$d|%3$s>\n"), "<0|(null)>\n");
}

TEST(Echo, LeavesAloneWhatIsNoConversion) {
    for (const char* line : {"%\n", "100%", "%5", "%-", "%.", "%5.", "%*", "%l", "%y\n", "%-5.3y\n",
                             "%lhd\n", "%0$d\n", "%1$\n", "%!", "%w"}) {
        EXPECT_EQ(echoed(line), line);
    }
    EXPECT_EQ(echoed("%%%\n"), "%%\n");
}

TEST(Echo, RefusesToWriteToMemory) {
    for (const char* line : {"%n\n", "%hhn\n", "%ln\n", "%2$n\n", "%5n\n", "%*n\n", "%-.3lln\n"}) {
        EXPECT_EQ(echoed(line), line);
    }
}

TEST(Echo, RefusesWidthsThatAreNoLayout) {
    for (const char* line : {"%999999d\n", "%.2147483647d\n", "%99999999999999999999d\n"}) {
        EXPECT_EQ(echoed(line), line);
    }
    EXPECT_EQ(echoed("%99999d").size(), 99999u);
}

TEST(Echo, RefusesFormatsThatAreTooLong) {
    const std::string flags(61, '0');
    EXPECT_EQ(echoed(("%" + flags + "d").c_str()), "0") << "the longest";
    for (const char* const rest : {"0", "00", "1", "12345", ".", ".5", "1.5"}) {
        const std::string line = "%" + flags + rest + "d";
        EXPECT_EQ(echoed(line.c_str()), line);
    }
}

TEST(Echo, TakesEachConversionByItself) {
    EXPECT_EQ(echoed("%n %d %y %s %% %f%\n"), "%n 0 %y (null) % 0.000000%\n");
    EXPECT_EQ(echoed("%d%d%d%d%d%d%d%d%d%d\n"), "0000000000\n");
    EXPECT_EQ(echoed("100%% of %n in %5d s\n"), "100% of %n in     0 s\n");
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
    EXPECT_EQ(printedFor("<%n%%%f>"), "<%n%0.000000>\n");
    EXPECT_THAT(log.texts(), ElementsAre("100%%", "<%d>", "<%s>", "<%n>", "<%n%%%f>"));
}

TEST(TraceEcho, IsNotPrintedWhenTheFileCannotBeOpened) {
    const TraceLog log(3, TraceLog::Directory::eLeaveMissing);
    CRegLibTrace::createInstance();
    EXPECT_EQ(printedFor("x"), "");
}
