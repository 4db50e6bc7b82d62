// Which lines are written at which level.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "RegLib/trace/Trace.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::g_pregLibTrace;
using vqtest::TraceLog;

namespace {

// One line of each kind.
void writeAll() {
    REGLIB_TRACE(VQRegLib::eTraceChange, "change\n");
    REGLIB_TRACE(VQRegLib::eTraceLife, "life\n");
    REGLIB_TRACE(VQRegLib::eTraceFlow, "flow\n");
    REGLIB_TRACE(VQRegLib::eTraceImport, "import\n");
    REGLIB_TRACE(VQRegLib::eTraceAlways, "(Error) always\n");
}

std::vector<std::string> linesAt(std::uint32_t level) {
    const TraceLog log(level);
    CRegLibTrace::createInstance();
    testing::internal::CaptureStdout();
    writeAll();
    std::fflush(stdout);
    testing::internal::GetCapturedStdout();
    return log.texts();
}

}  // namespace

TEST(TraceLevel, ZeroRegistersNothing) {
    EXPECT_THAT(linesAt(0), IsEmpty());
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
    EXPECT_EQ(CRegLibTrace::m_lLogLevel.load(), 0);
}

TEST(TraceLevel, OneIsChanges) {
    EXPECT_THAT(linesAt(1), ElementsAre("change", "(Error) always"));
}

TEST(TraceLevel, TwoAddsNoLines) {
    EXPECT_THAT(linesAt(2), ElementsAre("(Error) always"));
}

TEST(TraceLevel, FourIsLife) {
    EXPECT_THAT(linesAt(4), ElementsAre("life", "(Error) always"));
}

TEST(TraceLevel, EightIsFlow) {
    EXPECT_THAT(linesAt(8), ElementsAre("flow", "(Error) always"));
}

TEST(TraceLevel, SixteenIsImport) {
    EXPECT_THAT(linesAt(16), ElementsAre("import", "(Error) always"));
}

TEST(TraceLevel, ThirtyOneIsEverything) {
    EXPECT_THAT(linesAt(31), ElementsAre("change", "life", "flow", "import", "(Error) always"));
}

TEST(TraceLevel, AnyOtherBitRegistersForErrors) {
    EXPECT_THAT(linesAt(0x80000000u), ElementsAre("(Error) always"));
    EXPECT_LT(CRegLibTrace::m_lLogLevel.load(), 0);
}

TEST(TraceLevel, NothingIsWrittenBeforeTheObjectIsMade) {
    const TraceLog log(31);
    writeAll();
    EXPECT_THAT(log.files(), IsEmpty());
}

TEST(TraceLevel, ALineThatIsOffEvaluatesNothing) {
    const TraceLog log(1);
    CRegLibTrace::createInstance();
    int evaluated = 0;
    REGLIB_TRACE(VQRegLib::eTraceFlow, "%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    REGLIB_TRACE(VQRegLib::eTraceChange, "%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 1);
    EXPECT_THAT(log.texts(), ElementsAre("1"));
}

TEST(TraceObject, IsMadeOnce) {
    const TraceLog log(1);
    EXPECT_EQ(CRegLibTrace::m_lFakeMutex.load(), 0);
    CRegLibTrace::createInstance();
    CRegLibTrace* const first = g_pregLibTrace.load();
    EXPECT_NE(first, nullptr);
    const std::int32_t calls = CRegLibTrace::m_lFakeMutex.load();
    EXPECT_EQ(calls, 2);  // the session that reads the level calls it too
    CRegLibTrace::createInstance();
    EXPECT_EQ(g_pregLibTrace.load(), first);
    EXPECT_EQ(CRegLibTrace::m_lFakeMutex.load(), calls + 1);
}

TEST(TraceObject, IsNotMadeLaterWhenTheFirstCallMadeNone) {
    { const TraceLog log(0); }
    CRegLibTrace::createInstance();
    const TraceLog log(31);
    CRegLibTrace::createInstance();
    writeAll();
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
    EXPECT_THAT(log.files(), IsEmpty());
}

TEST(TraceObject, IsNotMadeInPlaceOfAnother) {
    const TraceLog log(1);
    CRegLibTrace::createInstance();
    CRegLibTrace* const first = g_pregLibTrace.load();
    CRegLibTrace::m_lFakeMutex = 0;
    CRegLibTrace::createInstance();
    EXPECT_EQ(g_pregLibTrace.load(), first);
    EXPECT_EQ(CRegLibTrace::m_lFakeMutex.load(), 1);
}

TEST(TraceObject, UnregistersAndClosesItsFileWhenItEnds) {
    const TraceLog log(1);
    CRegLibTrace::createInstance();
    writeAll();
    delete g_pregLibTrace.load();
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
    writeAll();
    EXPECT_THAT(log.texts(), ElementsAre("change", "(Error) always"));
}

TEST(TraceObject, TheEndOfAnyOneEndsTheRegisteredOne) {
    const TraceLog log(1);
    CRegLibTrace::createInstance();
    std::unique_ptr<CRegLibTrace> other;
    {
        const TraceLog off(0);
        // The level of another process is of no interest: the store is read again because its
        // stamp is gone.
        std::remove("/dev/shm/CPBlock.%2Fetc%2FVelquist.cfg");
        other = std::make_unique<CRegLibTrace>();
    }
    EXPECT_NE(g_pregLibTrace.load(), nullptr);
    EXPECT_NE(g_pregLibTrace.load(), other.get());
    EXPECT_EQ(CRegLibTrace::m_lLogLevel.load(), 0);
    other.reset();
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
}
