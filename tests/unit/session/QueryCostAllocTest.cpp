// A query of a value that nobody has changed: no allocation and no system call.
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "VQRegLib.h"
#include "support/ChildLife.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

// The library's calls of these functions arrive here.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
char* __real_strdup(const char* text);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* memory, std::size_t size);
char* __wrap_strdup(const char* text);
}

namespace {

unsigned long theAllocations = 0;

void* allocate(std::size_t size) {
    ++theAllocations;
    void* const memory = __real_malloc(size == 0 ? 1 : size);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}

// Out of line: where it is inlined, the compiler takes it for a mismatch with the operator new.
__attribute__((noinline)) void release(void* memory) {
    std::free(memory);
}

}  // namespace

void* __wrap_malloc(std::size_t size) {
    ++theAllocations;
    return __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    ++theAllocations;
    return __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, std::size_t size) {
    ++theAllocations;
    return __real_realloc(memory, size);
}

char* __wrap_strdup(const char* text) {
    ++theAllocations;
    return __real_strdup(text);
}

void* operator new(std::size_t size) {
    return allocate(size);
}

void* operator new[](std::size_t size) {
    return allocate(size);
}

void operator delete(void* memory) noexcept {
    release(memory);
}

void operator delete[](void* memory) noexcept {
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}

using namespace VQRegLib;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

constexpr int kQueries = 1000;
constexpr int kAttempts = 10;

class QueryCost : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(session.VQRegCreateKey(nullptr, "Some/Long/Path", key, 1), REGLIB_OK);
        ASSERT_EQ(session.VQRegSetValue(key, "Number", 31ul), REGLIB_OK);
        ASSERT_EQ(session.VQRegSetValue(key, "Text", std::string(200, 't').c_str()), REGLIB_OK);
        const std::array<unsigned char, 100> bytes{};
        ASSERT_EQ(session.VQRegSetValue(key, "Bytes", bytes.data(), bytes.size()), REGLIB_OK);
        EXPECT_TRUE(queryAll());
    }

    // Queries each value and its type, found and not found.
    bool queryAll() {
        const auto query = [this](const char* name) {
            std::array<unsigned char, 256> data;
            unsigned long size = data.size();
            CRegLib::eDataType type = CRegLib::eNone;
            return session.VQRegQueryValue(key, name, type, data.data(), &size);
        };
        CRegLib::eDataType type = CRegLib::eNone;
        return query("Number") == REGLIB_OK && query("TEXT") == REGLIB_OK &&
               query("bytes") == REGLIB_OK && query("none") == REGLIB_E_NOT_FOUND &&
               session.VQRegQueryValueType(key, "Text", type) == REGLIB_OK;
    }

    TraceLog log{1};
    TempStore store;
    CRegLib session{store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
    CRegKey key;
};

// From now on every system call but exit_group ends the process with SIGSYS.
bool forbidSystemCalls() {
    std::array<sock_filter, 4> instructions = {{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    }};
    const sock_fprog program = {instructions.size(), instructions.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

constexpr int kNoFilter = 3;

// The wait status of a child that does `work` without system calls.
int runWithoutSystemCalls(const std::function<bool()>& work) {
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
        vqtest::endWithParent(parent);
        work();  // the first time may look things up, like the number of the process
        if (!forbidSystemCalls()) {
            ::_exit(kNoFilter);
        }
        const int result = work() ? 0 : 1;
        ::syscall(SYS_exit_group, result);  // _exit may look for leaks first
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

}  // namespace

TEST_F(QueryCost, NothingIsAllocated) {
    const unsigned long before = theAllocations;
    bool found = true;
    for (int i = 0; i < kQueries; ++i) {
        found = queryAll() && found;
    }
    EXPECT_EQ(theAllocations, before);
    EXPECT_TRUE(found);
}

TEST_F(QueryCost, AllocationsAreCounted) {
    const unsigned long before = theAllocations;
    ASSERT_EQ(session.VQRegSetValue(key, "Number", 32ul), REGLIB_OK);
    EXPECT_GT(theAllocations, before);
}

// But for the look that each second begins with, which may fall in here.
TEST_F(QueryCost, NoSystemCallIsMade) {
    const auto query = [this] {
        bool found = true;
        for (int i = 0; i < kQueries; ++i) {
            found = queryAll() && found;
        }
        return found;
    };
    int status = -1;
    for (int attempt = 0; attempt < kAttempts && status != 0; ++attempt) {
        status = runWithoutSystemCalls(query);
    }
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(QueryCost, SystemCallsWouldBeNoticed) {
    const int status = runWithoutSystemCalls([] { return ::syscall(SYS_getppid) > 0; });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGSYS);
}
