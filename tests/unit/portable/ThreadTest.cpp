// The threads that the library starts.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <string>

#include "portable/Portable.h"
#include "support/Wait.h"

using VQRegLib::CPortable;
using vqtest::waitUntil;

namespace {

// What a thread has found out about itself.
struct Findings {
    std::atomic<bool> isDone{false};
    sigset_t blocked{};
    std::string name;
    int detachState = -1;
    pthread_t self{};
    long id = 0;
};

void findOut(void* argument) {
    auto* const findings = static_cast<Findings*>(argument);
    pthread_sigmask(SIG_BLOCK, nullptr, &findings->blocked);
    char name[64] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    findings->name = name;
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        pthread_attr_getdetachstate(&attributes, &findings->detachState);
        pthread_attr_destroy(&attributes);
    }
    findings->self = pthread_self();
    findings->id = CPortable::GetCurrentThreadId();
    findings->isDone = true;
}

void run(Findings& findings, const std::string& name) {
    ASSERT_NE(CPortable::CreateThread(findOut, &findings, nullptr, name), 0u);
    ASSERT_TRUE(waitUntil([&] { return findings.isDone.load(); }));
}

std::string ownName() {
    char name[64] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

}  // namespace

TEST(Thread, RunsWithAllSignalsBlocked) {
    Findings findings;
    run(findings, "Worker");
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2,
                             SIGCHLD, SIGIO, SIGPROF, SIGWINCH, SIGRTMIN, SIGRTMAX}) {
        EXPECT_EQ(sigismember(&findings.blocked, signal), 1) << signal;
    }
}

TEST(Thread, LeavesTheSignalsOfItsCreatorAlone) {
    sigset_t mine;
    sigemptyset(&mine);
    sigaddset(&mine, SIGUSR1);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &mine, nullptr), 0);
    Findings findings;
    run(findings, "Worker");
    sigset_t now;
    pthread_sigmask(SIG_BLOCK, nullptr, &now);
    EXPECT_EQ(sigismember(&now, SIGUSR1), 1);
    EXPECT_EQ(sigismember(&now, SIGUSR2), 0);
    EXPECT_EQ(sigismember(&now, SIGTERM), 0);
}

TEST(Thread, HasItsNameUpToFifteenBytes) {
    const std::string before = ownName();
    Findings brief;
    run(brief, "FileWatch");
    EXPECT_EQ(brief.name, "FileWatch");
    Findings longest;
    run(longest, "123456789012345");
    EXPECT_EQ(longest.name, "123456789012345");
    Findings cut;
    run(cut, "1234567890123456");
    EXPECT_EQ(cut.name, "123456789012345");
    EXPECT_EQ(ownName(), before);
}

TEST(Thread, KeepsTheNameOfItsCreatorWithoutOne) {
    CPortable::SetCurrentThreadName("Creator");
    EXPECT_EQ(ownName(), "Creator");
    Findings findings;
    run(findings, "");
    EXPECT_EQ(findings.name, "Creator");
}

TEST(Thread, IsDetached) {
    Findings findings;
    run(findings, "Worker");
    EXPECT_EQ(findings.detachState, PTHREAD_CREATE_DETACHED);
}

TEST(Thread, IsAnotherOneAndHasANumber) {
    Findings findings;
    unsigned long id = 0;
    const unsigned long handle = CPortable::CreateThread(findOut, &findings, &id, "Worker");
    ASSERT_TRUE(waitUntil([&] { return findings.isDone.load(); }));
    EXPECT_NE(handle, 0u);
    EXPECT_NE(id, 0u);
    EXPECT_EQ(pthread_equal(findings.self, pthread_self()), 0);
    EXPECT_NE(findings.id, CPortable::GetCurrentThreadId());
}

TEST(Thread, EndsWithAnExceptionThatLeavesItAndTheProgramGoesOn) {
    static std::atomic<pid_t> thread{0};
    const auto throwing = [](void*) {
        thread = gettid();
        throw std::runtime_error("nobody catches it");
    };
    ASSERT_NE(CPortable::CreateThread(throwing, nullptr, nullptr, "Worker"), 0u);
    ASSERT_TRUE(waitUntil([] { return thread != 0; }));
    EXPECT_TRUE(waitUntil([] { return ::tgkill(::getpid(), thread, 0) != 0; }));
}

TEST(Thread, MayEndItself) {
    static std::atomic<bool> isUnwound{false};
    struct Unwound {
        ~Unwound() { isUnwound = true; }
    };
    const auto ending = [](void*) {
        const Unwound unwound;
        pthread_exit(nullptr);
    };
    ASSERT_NE(CPortable::CreateThread(ending, nullptr, nullptr, "Worker"), 0u);
    EXPECT_TRUE(waitUntil([] { return isUnwound.load(); }));
}
