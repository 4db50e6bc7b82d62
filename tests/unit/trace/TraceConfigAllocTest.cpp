// Configuring the log without memory. In an executable of its own, because it replaces the
// allocation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <new>

#include "RegLib/trace/Trace.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using VQRegLib::g_pregLibTrace;
using vqtest::TraceLog;

namespace {

bool g_failThrowing = false;  // operator new
bool g_failNothrow = false;   // operator new (std::nothrow)

void* allocate(std::size_t size, bool fail) {
    return fail ? nullptr : std::malloc(size != 0 ? size : 1);
}

}  // namespace

// Not inlined: the compiler would take what is freed for something from another allocation.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const memory = allocate(size, g_failThrowing);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, g_failNothrow);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

TEST(TraceShortage, ALevelThatCannotBeReadIsOneAndTheLogGoesToTheWorkingDirectory) {
    const TraceLog log(31);
    const vqtest::TempStore store;
    fs::current_path(store.directory());
    g_failThrowing = true;
    CRegLibTrace::createInstance();
    g_failThrowing = false;
    EXPECT_EQ(CRegLibTrace::m_lLogLevel.load(), 1);
    ASSERT_NE(g_pregLibTrace.load(), nullptr);
    REGLIB_TRACE(VQRegLib::eTraceChange, "x\n");
    EXPECT_THAT(log.files(), IsEmpty());
    EXPECT_THAT(store.files(), ElementsAre(StartsWith("RegLibTrace-")));
    fs::current_path("/");
}

TEST(TraceShortage, WithoutAnObjectThereIsNoLog) {
    const TraceLog log(31);
    g_failNothrow = true;
    CRegLibTrace::createInstance();
    g_failNothrow = false;
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
    REGLIB_TRACE(VQRegLib::eTraceAlways, "(Error) x\n");
    CRegLibTrace::createInstance();
    EXPECT_EQ(g_pregLibTrace.load(), nullptr);
    EXPECT_THAT(log.files(), IsEmpty());
}

TEST(TraceShortage, LinesAreWrittenWithoutMemory) {
    const TraceLog log(1);
    CRegLibTrace::createInstance();
    CRegLibTrace* const trace = g_pregLibTrace.load();
    ASSERT_NE(trace, nullptr);
    g_failThrowing = true;
    trace->trace("first\n");
    trace->trace("second\n");
    g_failThrowing = false;
    EXPECT_THAT(log.texts(), ElementsAre("first", "second"));
}
