// No thread can be had. In an executable of its own, because it replaces pthread_create.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <csignal>

#include "portable/Portable.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" int __wrap_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

extern "C" int __wrap_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
    return EAGAIN;
}
// NOLINTEND(bugprone-reserved-identifier)

TEST(ThreadShortage, GivesNoHandleAndRestoresTheSignals) {
    unsigned long id = 42;
    bool isCalled = false;
    const auto entry = [](void* argument) { *static_cast<bool*>(argument) = true; };
    EXPECT_EQ(VQRegLib::CPortable::CreateThread(entry, &isCalled, &id, "Worker"), 0u);
    EXPECT_EQ(id, 42u);
    EXPECT_FALSE(isCalled);
    sigset_t now;
    pthread_sigmask(SIG_BLOCK, nullptr, &now);
    EXPECT_EQ(sigismember(&now, SIGUSR1), 0);
    EXPECT_EQ(sigismember(&now, SIGTERM), 0);
}
