// A program that loads the library with a module and unloads it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "VQRegLib.h"
#include "support/ForkedChild.h"
#include "support/WatchedStore.h"

using vqtest::ForkedChild;

using HandlerUnload = vqtest::WatchedStore;

TEST_F(HandlerUnload, ThreadsOutliveTheUnloadingOfTheirModule) {
    int input[2];
    int output[2];
    ASSERT_EQ(::pipe2(input, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(output, O_CLOEXEC), 0);
    ForkedChild host([&] {
        ::dup2(input[0], STDIN_FILENO);
        ::dup2(output[1], STDOUT_FILENO);
        ::execl(VQREG_PLUGIN_HOST_PATH, VQREG_PLUGIN_HOST_PATH, VQREG_PLUGIN_PATH,
                file.path().c_str(), "3", static_cast<char*>(nullptr));
        return 99;
    });
    ::close(input[0]);
    ::close(output[1]);
    char text[16] = "";
    ASSERT_GT(::read(output[0], text, sizeof text - 1), 0) << host.wait();
    EXPECT_STREQ(text, "unloaded\n");
    EXPECT_EQ(vqtest::countThreads("RegChgNotif", host.pid()), 1);
    // The notifier is woken without its module; and again while the process ends.
    for (int i = 0; i < 20; ++i) {
        announceNothing(1);
    }
    EXPECT_TRUE(vqtest::hasSemaphore(host.pid()));
    ::close(input[1]);
    announceNothing(5);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_FALSE(vqtest::hasSemaphore(host.pid())) << "a normal end takes the semaphore along";
    ::close(output[0]);
}
